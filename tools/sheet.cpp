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
    const unsigned int row = i / width_;
    values_[size_t{i} * 3 + 2] = double(row) / width_;
  }
}

double* Sheet::At(unsigned int frame) {
  const unsigned int width = std::max(1U, width_);  // never 0; the checker cannot know
  const double phase = frame * kPhasePerFrame;
  double across = 0;
  for (unsigned int x = 0; x < width; ++x) {
    rowWave_[x] = kHeight * std::sin(kWaves * x / width + phase);
  }
  for (unsigned int i = 0; i < points_; ++i) {
    const unsigned int row = i / width;
    const unsigned int column = i % width;
    if (column == 0) across = kHeight * std::cos(kWaves * row / width - phase);
    values_[size_t{i} * 3 + 1] = rowWave_[column] + across;
  }
  return values_.data();
}

}  // namespace kelcache
