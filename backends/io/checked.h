#pragma once

#include <concepts>
#include <limits>
#include <type_traits>

namespace kelsdk::io {

/// A product of sizes, counts or offsets. False, with `*result` left alone, when the true value
/// does not fit.
template <std::unsigned_integral T>
[[nodiscard]] bool CheckedMultiply(T a, std::type_identity_t<T> b, T* result) {
  T product = 0;
  if (__builtin_mul_overflow(a, b, &product)) return false;
  *result = product;
  return true;
}

/// True when the run [offset, offset + length) lies inside [0, size).
[[nodiscard]] constexpr bool RangeFits(unsigned long long offset, unsigned long long length,
                                       unsigned long long size) {
  return offset <= size && length <= size - offset;
}

template <std::unsigned_integral To, std::unsigned_integral From>
[[nodiscard]] constexpr bool Fits(From value) {
  return value <= std::numeric_limits<To>::max();
}

}  // namespace kelsdk::io
