#pragma once

#include <cmath>
#include <limits>

namespace kelsdk {

/// The float nearest to a double. Beyond the largest float that is infinity, as IEEE 754 rounds;
/// the cast alone would be undefined there.
inline float KelNearestFloat(double value) noexcept {
  constexpr double kRoundsToInfinity = 0x1.ffffffp127;
  if (!(std::fabs(value) >= kRoundsToInfinity)) return static_cast<float>(value);
  return static_cast<float>(std::copysign(std::numeric_limits<double>::infinity(), value));
}

}  // namespace kelsdk
