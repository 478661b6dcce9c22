#pragma once

#include <cmath>
#include <limits>

namespace kelsdk {

/// The float nearest to a double. Beyond the largest float that is infinity, as IEEE 754 rounds;
/// the cast alone would be undefined there. One cast at the end, of a value chosen without a jump:
/// a loop of this is vectorised.
inline float KelNearestFloat(double value) noexcept {
  constexpr double kRoundsToInfinity = 0x1.ffffffp127;
  const double infinity = std::copysign(std::numeric_limits<double>::infinity(), value);
  return static_cast<float>(std::fabs(value) >= kRoundsToInfinity ? infinity : value);
}

}  // namespace kelsdk
