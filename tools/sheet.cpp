#include "tools/sheet.h"

#include <algorithm>
#include <cmath>

namespace kelcache {
namespace {

constexpr double kPhasePerFrame = 0.1;  // radians
constexpr double kWaves = 12.0;         // radians across the sheet
constexpr double kHeight = 0.1;         // of a sheet of side 1

}  // namespace

Sheet::Sheet(unsigned int points)
    : points_(points),
      width_(std::max(1U, static_cast<unsigned int>(std::ceil(std::sqrt(double(points)))))),
      values_(std::max<size_t>(1, size_t{points} * 3)),
      rowWave_(width_) {
  for (unsigned int i = 0; i < points_; ++i) {
    values_[size_t{i} * 3] = double(i % width_) / width_;
    values_[size_t{i} * 3 + 2] = double(i / width_) / width_;
  }
}

double* Sheet::At(unsigned int frame) {
  const double phase = frame * kPhasePerFrame;
  for (unsigned int x = 0; x < width_; ++x) {
    rowWave_[x] = kHeight * std::sin(kWaves * x / width_ + phase);
  }
  for (unsigned int i = 0; i < points_;) {
    const double across = kHeight * std::cos(kWaves * (i / width_) / width_ - phase);
    for (unsigned int x = 0; x < width_ && i < points_; ++x, ++i) {
      values_[size_t{i} * 3 + 1] = rowWave_[x] + across;
    }
  }
  return values_.data();
}

}  // namespace kelcache
