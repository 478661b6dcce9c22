#pragma once

#include <cstdint>

#include "backends/alembic/archive.h"
#include "backends/io/error.h"

namespace kelsdk::alembic {

/// Whether a sample of `valueBytes` bytes is one of whole elements, of exactly one for a scalar of
/// numbers.
bool CheckSampleSize(const Property& property, std::uint64_t valueBytes, io::Error& error);

/// Elements in an array sample of `valueBytes` bytes; false when its dimensions contradict that.
bool CountElements(const Property& property, std::uint64_t valueBytes, const Dimensions& dimensions,
                   std::uint64_t& elements, io::Error& error);

/// Checks the `size` bytes of a sample of strings: exactly `count` of them, each with its
/// terminator, wide ones of code points that exist. `type` is eString or eWstring.
bool CheckStrings(EPlainType type, const std::uint8_t* bytes, std::size_t size, std::uint64_t count,
                  io::Error& error);

}  // namespace kelsdk::alembic
