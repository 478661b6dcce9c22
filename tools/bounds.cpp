#include "tools/bounds.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "tools/numbers.h"

namespace kelcache {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

std::string TupleText(const std::vector<float>& values) {
  std::string text = "(";
  for (const float value : values) {
    if (text.size() > 1) text += ", ";
    text += std::isinf(value) ? "-" : ShortestText(value);
  }
  return text + ")";
}

// The number of components known to the compiler keeps the limits in registers.
template <unsigned int kComponents>
std::uint64_t Scan(const float* values, unsigned int elements, float* low, float* high) {
  float lowest[kComponents];
  float highest[kComponents];
  std::fill(lowest, lowest + kComponents, kInfinity);
  std::fill(highest, highest + kComponents, -kInfinity);
  std::uint64_t notFinite = 0;
  for (unsigned int i = 0; i < elements; ++i, values += kComponents) {
    for (unsigned int k = 0; k < kComponents; ++k) {
      const float value = values[k];
      const bool finite = std::fabs(value) < kInfinity;
      notFinite += finite ? 0U : 1U;
      lowest[k] = finite && value < lowest[k] ? value : lowest[k];
      highest[k] = finite && value > highest[k] ? value : highest[k];
    }
  }
  std::copy(lowest, lowest + kComponents, low);
  std::copy(highest, highest + kComponents, high);
  return notFinite;
}

}  // namespace

void Bounds::Add(const Bounds& other) {
  if (low.empty()) {
    *this = other;
    return;
  }
  for (size_t k = 0; k < std::min(low.size(), other.low.size()); ++k) {
    low[k] = std::min(low[k], other.low[k]);
    high[k] = std::max(high[k], other.high[k]);
  }
  notFinite += other.notFinite;
}

std::string Bounds::LowText() const {
  return TupleText(low);
}
std::string Bounds::HighText() const {
  return TupleText(high);
}

Bounds BoundsOf(const float* values, unsigned int elements, unsigned int components) {
  Bounds bounds{std::vector<float>(components, kInfinity),
                std::vector<float>(components, -kInfinity), 0};
  if (components == 3) {
    bounds.notFinite = Scan<3>(values, elements, bounds.low.data(), bounds.high.data());
    return bounds;
  }
  for (unsigned int i = 0; i < elements; ++i, values += components) {
    for (unsigned int k = 0; k < components; ++k) {
      if (!std::isfinite(values[k])) {
        ++bounds.notFinite;
        continue;
      }
      bounds.low[k] = std::min(bounds.low[k], values[k]);
      bounds.high[k] = std::max(bounds.high[k], values[k]);
    }
  }
  return bounds;
}

float LargestMove(const float* before, const float* after, unsigned int elements,
                  unsigned int components) {
  double largest = 0;
  for (size_t i = 0; i < elements; ++i) {
    double squares = 0;
    for (size_t k = 0; k < components; ++k) {
      const double move = double(after[i * components + k]) - double(before[i * components + k]);
      squares += move * move;
    }
    largest = std::max(largest, squares);
  }
  return static_cast<float>(std::sqrt(largest));
}

}  // namespace kelcache
