#pragma once

#include <cstddef>
#include <cstdint>

namespace kelsdk::nc {

/// The most bytes that EncodeCompact makes of `count` elements of `stride` bytes.
std::size_t CompactBound(std::size_t count, std::size_t stride);

/// Writes `count` elements of `stride` bytes (a multiple of 4, at most 64) in the compact form that
/// docs/nc-format.md gives, and gives the number of bytes. `out` has room for CompactBound bytes.
std::size_t EncodeCompact(const void* elements, std::size_t count, std::size_t stride,
                          std::uint8_t* out);

}  // namespace kelsdk::nc
