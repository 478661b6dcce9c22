#include "backends/alembic/time_sampling.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kelsdk::alembic {
namespace {

bool Near(double a, double b) {
  return std::fabs(a - b) <= TimeSampling::kTolerance;
}

bool Increasing(const std::vector<double>& times) {
  for (std::size_t i = 0; i < times.size(); ++i) {
    if (!std::isfinite(times[i])) return false;
    if (i > 0 && !(times[i] > times[i - 1])) return false;
  }
  return !times.empty();
}

TimeSampling::EKind KindOf(double period, const std::vector<double>& times) {
  if (!Increasing(times)) return TimeSampling::eInvalid;
  if (period == TimeSampling::kAcyclicPeriod) return TimeSampling::eAcyclic;
  if (!std::isfinite(period) || !(period > 0)) return TimeSampling::eInvalid;
  if (times.size() == 1) return TimeSampling::eUniform;
  const bool withinCycle = times.back() - times.front() <= period;
  return withinCycle ? TimeSampling::eCyclic : TimeSampling::eInvalid;
}

}  // namespace

TimeSampling TimeSampling::FromStored(double period, std::vector<double> times,
                                      std::uint32_t maxSamples) {
  TimeSampling sampling;
  sampling.kind = KindOf(period, times);
  sampling.period = sampling.kind == eAcyclic ? 0 : period;
  sampling.times = std::move(times);
  sampling.maxSamples = maxSamples;
  return sampling;
}

std::uint32_t TimeSampling::TimedSamples(std::uint32_t sampleCount) const {
  if (kind == eInvalid) return 0;
  if (kind != eAcyclic || times.size() >= sampleCount) return sampleCount;
  return static_cast<std::uint32_t>(times.size());
}

double TimeSampling::TimeOf(std::uint32_t sample) const {
  if (kind == eUniform) return times[0] + period * sample;
  if (kind == eAcyclic) return times[sample];
  const std::size_t cycle = sample / times.size();
  return times[sample % times.size()] + period * static_cast<double>(cycle);
}

std::uint32_t TimeSampling::FloorSample(double seconds, std::uint32_t sampleCount) const {
  if (!(seconds > TimeOf(0))) return 0;
  if (seconds >= TimeOf(sampleCount - 1)) return sampleCount - 1;
  if (kind == eUniform) return FloorUniform(seconds, sampleCount);
  if (kind == eCyclic) return FloorCyclic(seconds, sampleCount);
  return FloorAcyclic(seconds, sampleCount);
}

// In the three below `seconds` lies between the first sample and the last.

std::uint32_t TimeSampling::FloorUniform(double seconds, std::uint32_t sampleCount) const {
  const double last = sampleCount - 1;
  const auto sample =
      static_cast<std::uint32_t>(std::clamp((seconds - times[0]) / period, 0.0, last));
  const double time = TimeOf(sample);
  if (time > seconds && !Near(time, seconds) && sample > 0) return sample - 1;
  if (sample < sampleCount - 1 && Near(TimeOf(sample + 1), seconds)) return sample + 1;
  return sample;
}

std::uint32_t TimeSampling::FloorCyclic(double seconds, std::uint32_t sampleCount) const {
  // The first sample after `seconds`, which the first one is not and the last one is.
  std::uint32_t after = 1;
  for (std::uint32_t last = sampleCount - 1; after < last;) {
    const std::uint32_t middle = after + (last - after) / 2;
    if (TimeOf(middle) > seconds) {
      last = middle;
    } else {
      after = middle + 1;
    }
  }
  const bool exact = TimeOf(after - 1) == seconds;
  return !exact && Near(TimeOf(after), seconds) ? after : after - 1;
}

std::uint32_t TimeSampling::FloorAcyclic(double seconds, std::uint32_t sampleCount) const {
  const auto end = times.begin() + sampleCount;
  const auto after = std::upper_bound(times.begin(), end, seconds);
  const auto below = static_cast<std::uint32_t>(after - times.begin()) - 1;
  const bool exact = times[below] == seconds;
  if (!exact && after != end && Near(*after, seconds)) return below + 1;
  return below;
}

}  // namespace kelsdk::alembic
