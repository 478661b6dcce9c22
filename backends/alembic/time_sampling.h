#pragma once

#include <cstdint>
#include <limits>
#include <vector>

namespace kelsdk::alembic {

/// Turns sample numbers into seconds and back.
struct TimeSampling {
  enum EKind {
    eUniform,  ///< one stored time, then one every `period`
    eCyclic,   ///< the stored times again every `period`
    eAcyclic,  ///< the stored times and no others
    eInvalid,  ///< stored, but no such sampling can be
  };

  EKind kind = eUniform;
  double period = 1;  ///< seconds; 0 for eAcyclic
  std::vector<double> times = {0.0};
  std::uint32_t maxSamples = 0;  ///< as the file claims: a hint, not a bound

  /// The period that marks a sampling as acyclic.
  static constexpr double kAcyclicPeriod = std::numeric_limits<double>::max() / 32.0;

  /// What stored values make: the kind, or eInvalid when the period is not positive and finite or
  /// the times are not finite, increasing and within one cycle.
  static TimeSampling FromStored(double period, std::vector<double> times,
                                 std::uint32_t maxSamples);

  /// How many of `sampleCount` samples have a time.
  std::uint32_t TimedSamples(std::uint32_t sampleCount) const;

  /// Seconds of a sample. Acyclic: `sample` must be below times.size().
  double TimeOf(std::uint32_t sample) const;

  /// The last of `sampleCount` samples at or before `seconds`, held at both ends. A sample at most
  /// kTolerance after `seconds` counts as at it, so that a time that went through another clock
  /// still finds the sample it means. `sampleCount` is at least 1 and at most what has a time.
  std::uint32_t FloorSample(double seconds, std::uint32_t sampleCount) const;

  static constexpr double kTolerance = 1e-5;  // seconds

 private:
  std::uint32_t FloorUniform(double seconds, std::uint32_t sampleCount) const;
  std::uint32_t FloorCyclic(double seconds, std::uint32_t sampleCount) const;
  std::uint32_t FloorAcyclic(double seconds, std::uint32_t sampleCount) const;
};

}  // namespace kelsdk::alembic
