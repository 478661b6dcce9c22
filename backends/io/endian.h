#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace kelsdk::io {

// All our formats are little-endian; arrays are moved as they are.
static_assert(std::endian::native == std::endian::little,
              "arrays are read and written without swapping bytes");

template <typename T>
requires std::is_arithmetic_v<T> T LoadLittle(const void* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

template <typename T>
requires std::is_arithmetic_v<T>
void StoreLittle(void* bytes, T value) {
  std::memcpy(bytes, &value, sizeof value);
}

}  // namespace kelsdk::io
