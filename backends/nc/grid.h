#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "backends/nc/keys.h"

namespace kelsdk::nc {

// What keys an array is given: on a grid where its values may move, else without the bits that all
// of them lack.

// The lowest bits that are zero in all values.
template <typename Word>
std::uint8_t CommonZeros(bool isInteger, const Word* values, std::size_t count) {
  Word any = 0;
  for (std::size_t i = 0; i < count; ++i) any |= values[i];
  if (!isInteger) any = any << 1 >> 1;
  return static_cast<std::uint8_t>(std::min<int>(std::countr_zero(any), kBits<Word> - 1));
}

// The step of a grid that keeps all values within the bound when they are rounded to their own
// type as well; 0 where there is none. The same for all values up to a power of two.
template <typename Real>
double ChooseStep(const Real* values, std::size_t count, double bound) {
  using Word = typename GridKeys<Real>::Word;
  constexpr double kRounding = sizeof(Real) == sizeof(float) ? 0x1p-23 : 0x1p-51;
  // Sizes compare like their bits, and whatever is no number is above all.
  Word largestBits = 0;
  for (std::size_t i = 0; i < count; ++i) {
    largestBits = std::max<Word>(largestBits, std::bit_cast<Word>(values[i]) << 1 >> 1);
  }
  const auto largest = static_cast<double>(std::bit_cast<Real>(largestBits));
  double part = 0x1p-10;  // of the bound, left to rounding
  while (part < 1 && bound * part < largest * kRounding) part *= 2;
  const double step = 2 * bound * (1 - part);
  const bool serves = step > 0 && step <= GridKeys<Real>::kLargestStep &&
                      largest <= step * GridKeys<Real>::kLargestKey;
  return serves ? step : 0;
}

// Moves values onto a grid; false where one would leave the bound.
template <typename Real>
bool MoveToGrid(const GridKeys<Real>& grid, double bound, const Real* values, std::size_t count,
                Real* moved) {
  using Word = typename GridKeys<Real>::Word;  // as wide as a value, for vectors
  Word beyond = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto value = static_cast<double>(values[i]);
    moved[i] = grid.Nearest(value);
    beyond |= std::fabs(static_cast<double>(moved[i]) - value) > bound ? Word{1} : Word{0};
  }
  return beyond == 0;
}

template <typename Real>
bool PlaceOnGrid(const void* array, std::size_t valueCount, double bound, void* moved,
                 double* step) {
  const auto* const values = static_cast<const Real*>(array);
  *step = ChooseStep(values, valueCount, bound);
  return *step != 0 &&
         MoveToGrid(GridKeys<Real>{*step}, bound, values, valueCount, static_cast<Real*>(moved));
}

}  // namespace kelsdk::nc
