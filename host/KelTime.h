#pragma once

#include <cstdint>

#include "host/KelApi.h"

namespace kelsdk {

/// Frames per second as an exact ratio: 24 is {24, 1}, the 29.97 of television is {30000, 1001}.
struct KEL_API KelFrameRate {
  std::uint32_t numerator = 24;
  std::uint32_t denominator = 1;

  bool IsValid() const noexcept { return numerator != 0 && denominator != 0; }
  double PerSecond() const noexcept { return double(numerator) / double(denominator); }

  /// The exact rate that a person means by a number of frames per second: a whole rate, one of the
  /// n x 1000 / 1001 family within 0.005 (29.97, 23.976, 59.94), else the rate in millionths.
  /// Not valid for rates that are not above zero, not finite or above 4000.
  static KelFrameRate FromDouble(double framesPerSecond) noexcept;

  /// The exact rate behind one that was computed, such as 1 / a stored period: the simplest ratio
  /// within a billionth of it. Not valid where there is none of 32-bit numbers.
  static KelFrameRate FromComputed(double framesPerSecond) noexcept;

  constexpr bool operator==(const KelFrameRate& other) const noexcept {
    return std::uint64_t{numerator} * other.denominator ==
           std::uint64_t{other.numerator} * denominator;
  }
};

/// A moment or a length of time: one signed 64-bit count, 46,186,158,000 units to the second, in
/// which a frame at 24, 25, 30, 48, 50, 60, 100 and 120 frames per second is a whole number.
class KEL_API KelTime {
 public:
  static constexpr long long kUnitsPerSecond = 46186158000LL;

  /// A frame rate by name. eDefaultMode stands for the process-wide rate of SetDefaultFrameRate.
  enum EMode {
    eDefaultMode = 0,
    eFrames24,
    eFrames25,
    eFrames30,
    eFrames48,
    eFrames50,
    eFrames60,
    eFrames72,
    eFrames96,
    eFrames100,
    eFrames120,
    eFrames1000,
    eNTSC24,  ///< 24000 / 1001
    eNTSC30,  ///< 30000 / 1001
    eNTSC60,  ///< 60000 / 1001
  };

  constexpr KelTime() noexcept = default;
  constexpr explicit KelTime(long long count) noexcept : count_(count) {}

  constexpr long long Get() const noexcept { return count_; }
  constexpr void Set(long long count) noexcept { count_ = count; }

  /// Seconds to time, rounded to the nearest unit, held at the ends of the 64-bit range; NaN is 0.
  static KelTime FromSeconds(double seconds) noexcept;
  double GetSeconds() const noexcept { return double(count_) / double(kUnitsPerSecond); }

  /// The time of a frame, rounded to the nearest unit.
  static KelTime FromFrame(long long frame, KelFrameRate rate) noexcept;
  static KelTime FromFrame(long long frame, EMode mode = eDefaultMode) noexcept {
    return FromFrame(frame, GetFrameRate(mode));
  }

  /// The number of the frame that this time lies in: the last frame whose time, as FromFrame gives
  /// it, is not after this time. So the time of frame F gives F at every rate.
  long long GetFrameCount(KelFrameRate rate) const noexcept;
  long long GetFrameCount(EMode mode) const noexcept { return GetFrameCount(GetFrameRate(mode)); }

  static KelFrameRate GetFrameRate(EMode mode) noexcept;

  /// Sets the rate of eDefaultMode for the whole process (24 at start); false for a zero in it.
  static bool SetDefaultFrameRate(KelFrameRate rate) noexcept;

  constexpr KelTime operator+(const KelTime& other) const noexcept {
    return KelTime(count_ + other.count_);
  }
  constexpr KelTime operator-(const KelTime& other) const noexcept {
    return KelTime(count_ - other.count_);
  }

  /// The quotient of the two counts, truncated toward zero; a zero time when the divisor is zero.
  KelTime operator/(const KelTime& divisor) const noexcept;

  constexpr bool operator==(const KelTime& other) const noexcept { return count_ == other.count_; }
  constexpr bool operator!=(const KelTime& other) const noexcept { return count_ != other.count_; }
  constexpr bool operator<(const KelTime& other) const noexcept { return count_ < other.count_; }
  constexpr bool operator>(const KelTime& other) const noexcept { return count_ > other.count_; }
  constexpr bool operator<=(const KelTime& other) const noexcept { return count_ <= other.count_; }
  constexpr bool operator>=(const KelTime& other) const noexcept { return count_ >= other.count_; }

 private:
  long long count_ = 0;
};

}  // namespace kelsdk
