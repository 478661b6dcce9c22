#pragma once

#include <cstdint>

#include "backends/alembic/archive.h"
#include "backends/io/error.h"

namespace kelsdk::alembic {

/// Elements in an array sample of `valueBytes` bytes; false when its dimensions contradict that.
bool CountElements(const Property& property, std::uint64_t valueBytes, const Dimensions& dimensions,
                   std::uint64_t& elements, io::Error& error);

/// Checks the `size` bytes of a sample of strings: exactly `count` of them, each with its
/// terminator, wide ones of code points that exist. `type` is eString or eWstring.
bool CheckStrings(EPlainType type, const std::uint8_t* bytes, std::size_t size, std::uint64_t count,
                  io::Error& error);

}  // namespace kelsdk::alembic
