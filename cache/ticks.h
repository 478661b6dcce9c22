#pragma once

#include <climits>

#include "cache/checks.h"

namespace kelsdk {

inline constexpr double kTicksPerSecond = zuCacheFileInterface::kTicksPerSecond;
inline constexpr long long kUnitsPerTick = 7697693;  // KelTime::kUnitsPerSecond / 6000
static_assert(kUnitsPerTick * zuCacheFileInterface::kTicksPerSecond == KelTime::kUnitsPerSecond);

/// The smallest rate accepted, frames per second: 2 to the power -52.
inline constexpr double kSmallestRate = 2.220446049250313e-16;

inline KelTime TimeOfTicks(int ticks) {
  return KelTime(ticks * kUnitsPerTick);
}

/// Time to ticks, cut toward zero; false when the ticks do not fit 32 bits.
inline bool TicksOf(const KelTime& time, int* ticks) {
  const long long count = time.Get() / kUnitsPerTick;
  if (count < INT_MIN || count > INT_MAX) return false;
  *ticks = static_cast<int>(count);
  return true;
}

/// As above, with code 3 for a time that does not fit.
inline bool TicksOf(const KelTime& time, int* ticks, KelStatus* status) {
  return TicksOf(time, ticks) || Fail(status, KelStatus::eInvalidParameter);
}

/// False for a rate below the smallest, and for NaN.
inline bool IsRate(double framesPerSecond) {
  return framesPerSecond >= kSmallestRate;
}

/// Frames per second to ticks per frame, cut toward zero; false when it is no rate or the ticks do
/// not fit 32 bits.
inline bool TicksPerFrame(double framesPerSecond, int* ticks) {
  if (!IsRate(framesPerSecond)) return false;
  const double exact = kTicksPerSecond / framesPerSecond;
  if (exact >= double(INT_MAX) + 1.0) return false;
  *ticks = static_cast<int>(exact);
  return true;
}

}  // namespace kelsdk
