#include "host/KelTime.h"

#include <atomic>
#include <climits>
#include <cmath>

#include "host/KelFraction.h"

namespace kelsdk {
namespace {

__extension__ using Int128 = __int128;

constinit std::atomic<std::uint64_t> defaultFrameRate{(std::uint64_t{24} << 32) | 1};

KelFrameRate DefaultFrameRate() {
  const std::uint64_t packed = defaultFrameRate.load(std::memory_order_relaxed);
  return {static_cast<std::uint32_t>(packed >> 32), static_cast<std::uint32_t>(packed)};
}

long long Clamp(Int128 count) {
  if (count > LLONG_MAX) return LLONG_MAX;
  if (count < LLONG_MIN) return LLONG_MIN;
  return static_cast<long long>(count);
}

template <typename Integer>
Integer FloorDivide(Integer dividend, Integer divisor) {
  const Integer quotient = dividend / divisor;
  return quotient * divisor > dividend ? quotient - 1 : quotient;
}

// Units per frame when that is a whole number, else 0.
long long WholeUnitsPerFrame(KelFrameRate rate) {
  if (rate.denominator != 1 || KelTime::kUnitsPerSecond % rate.numerator != 0) return 0;
  return KelTime::kUnitsPerSecond / rate.numerator;
}

}  // namespace

KelFrameRate KelFrameRate::FromDouble(double framesPerSecond) noexcept {
  constexpr double kHighest = 4000;  // so that the rate in millionths fits 32 bits
  constexpr double kMillion = 1e6;
  if (!(framesPerSecond > 0) || framesPerSecond > kHighest) return {0, 0};
  const double whole = std::nearbyint(framesPerSecond);
  if (framesPerSecond == whole) return {static_cast<std::uint32_t>(whole), 1};
  const double nominal = std::nearbyint(framesPerSecond * 1.001);
  if (nominal >= 1 && std::fabs(framesPerSecond - nominal / 1.001) < 0.005) {
    return {static_cast<std::uint32_t>(nominal * 1000), 1001};
  }
  const double millionths = std::nearbyint(framesPerSecond * kMillion);
  if (millionths < 1) return {0, 0};
  return {static_cast<std::uint32_t>(millionths), static_cast<std::uint32_t>(kMillion)};
}

KelFrameRate KelFrameRate::FromComputed(double framesPerSecond) noexcept {
  constexpr double kTolerance = 1e-9;
  const KelFraction rate =
      KelFraction::Simplest(framesPerSecond * (1 - kTolerance), framesPerSecond * (1 + kTolerance));
  if (!rate.IsValid() || rate.numerator <= 0 || rate.numerator > UINT32_MAX ||
      rate.denominator > UINT32_MAX) {
    return {0, 0};
  }
  return {static_cast<std::uint32_t>(rate.numerator), static_cast<std::uint32_t>(rate.denominator)};
}

KelTime KelTime::FromSeconds(double seconds) noexcept {
  if (std::isnan(seconds)) return KelTime(0);
  // Whole seconds and the rest apart: the product of the whole would lose the last bits.
  const double whole = std::trunc(seconds);
  constexpr double kLongest = double(LLONG_MAX) / double(kUnitsPerSecond);
  if (whole >= kLongest) return KelTime(LLONG_MAX);
  if (whole <= -kLongest) return KelTime(LLONG_MIN);
  const auto rest = std::llround((seconds - whole) * double(kUnitsPerSecond));
  return KelTime(Clamp(Int128(static_cast<long long>(whole)) * kUnitsPerSecond + rest));
}

KelTime KelTime::FromFrame(long long frame, KelFrameRate rate) noexcept {
  if (!rate.IsValid()) return KelTime(0);
  const Int128 dividend = Int128(frame) * rate.denominator * kUnitsPerSecond;
  const Int128 divisor = rate.numerator;
  return KelTime(Clamp(FloorDivide<Int128>(2 * dividend + divisor, 2 * divisor)));
}

long long KelTime::GetFrameCount(KelFrameRate rate) const noexcept {
  if (!rate.IsValid()) return 0;
  if (const long long unitsPerFrame = WholeUnitsPerFrame(rate)) {
    return FloorDivide(count_, unitsPerFrame);
  }
  const Int128 divisor = Int128(rate.denominator) * kUnitsPerSecond;
  const long long frame = Clamp(FloorDivide<Int128>(Int128(count_) * rate.numerator, divisor));
  // The time of the next frame may have been rounded down to this very unit.
  return frame != LLONG_MAX && FromFrame(frame + 1, rate) <= *this ? frame + 1 : frame;
}

KelFrameRate KelTime::GetFrameRate(EMode mode) noexcept {
  switch (mode) {
    case eDefaultMode: return DefaultFrameRate();
    case eFrames24: return {24, 1};
    case eFrames25: return {25, 1};
    case eFrames30: return {30, 1};
    case eFrames48: return {48, 1};
    case eFrames50: return {50, 1};
    case eFrames60: return {60, 1};
    case eFrames72: return {72, 1};
    case eFrames96: return {96, 1};
    case eFrames100: return {100, 1};
    case eFrames120: return {120, 1};
    case eFrames1000: return {1000, 1};
    case eNTSC24: return {24000, 1001};
    case eNTSC30: return {30000, 1001};
    case eNTSC60: return {60000, 1001};
  }
  return DefaultFrameRate();
}

bool KelTime::SetDefaultFrameRate(KelFrameRate rate) noexcept {
  if (!rate.IsValid()) return false;
  defaultFrameRate = (std::uint64_t{rate.numerator} << 32) | rate.denominator;
  return true;
}

KelTime KelTime::operator/(const KelTime& divisor) const noexcept {
  if (divisor.count_ == 0) return KelTime(0);
  return KelTime(Clamp(Int128(count_) / divisor.count_));
}

}  // namespace kelsdk
