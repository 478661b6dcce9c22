#pragma once

#include <cstdint>
#include <vector>

#include "backends/io/error.h"
#include "backends/nc/element_type.h"

namespace kelsdk::nc {

/// Encodes an array in the compact form, into `encoded`, which keeps its capacity from call to
/// call. False when that would not be smaller than the array itself. May throw std::bad_alloc.
bool EncodeArray(EType type, const void* array, std::uint32_t elementCount,
                 std::vector<std::uint8_t>* encoded, std::size_t* encodedSize);

/// Decodes `encodedSize` bytes into an array of exactly `elementCount` elements. The input may be
/// anything; on failure the array holds rubbish.
bool DecodeArray(EType type, const std::uint8_t* encoded, std::size_t encodedSize, void* array,
                 std::uint32_t elementCount, io::Error& error);

}  // namespace kelsdk::nc
