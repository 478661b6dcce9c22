#include "backends/nc/even_spacing.h"

#include <algorithm>
#include <cmath>

#include "host/KelFraction.h"

namespace kelsdk::nc {
namespace {

constexpr double kHalfTick = 0.5;
constexpr double kRoundingSlack = 1e-6;  // ticks

// How far the samples lie behind where a step from tick 0 on would put them.
struct Lag {
  double least = 0;
  double most = 0;
  double Spread() const { return most - least; }
};

Lag LagBehind(const Times& times, double step) {
  Lag lag{double(times.At(0)), double(times.At(0))};
  for (std::uint32_t i = 1; i < times.Count(); ++i) {
    const double behind = times.At(i) - i * step;
    lag.least = std::min(lag.least, behind);
    lag.most = std::max(lag.most, behind);
  }
  return lag;
}

// The simplest number of frames in a range of ticks.
std::optional<double> SimplestFrames(double low, double high, double ticksPerFrame) {
  const KelFraction frames = KelFraction::Simplest((low - kRoundingSlack) / ticksPerFrame,
                                                   (high + kRoundingSlack) / ticksPerFrame);
  if (!frames.IsValid()) return {};
  return frames.Value();
}

// What the samples are when each was rounded to its tick.
std::optional<EvenSpacing> FindRounded(const Times& times, double ticksPerFrame) {
  const double steps = times.Count() - 1;
  const double length = double(times.At(times.Count() - 1)) - times.At(0);
  const auto interval = SimplestFrames((length - 1) / steps, (length + 1) / steps, ticksPerFrame);
  if (!interval) return {};
  const Lag lag = LagBehind(times, *interval * ticksPerFrame);
  if (lag.Spread() > 2 * (kHalfTick + kRoundingSlack)) return {};
  const auto start =
      SimplestFrames(std::min(lag.most - kHalfTick, lag.least + kHalfTick),
                     std::max(lag.most - kHalfTick, lag.least + kHalfTick), ticksPerFrame);
  if (!start) return {};
  return EvenSpacing{*start, *interval};
}

// The line from the first sample to the last, when all lie within a tick of it.
std::optional<EvenSpacing> FindNear(const Times& times, double ticksPerFrame) {
  const double first = times.At(0);
  const double step = (double(times.At(times.Count() - 1)) - first) / (times.Count() - 1);
  const Lag lag = LagBehind(times, step);
  if (lag.most - first > 1 + kRoundingSlack || first - lag.least > 1 + kRoundingSlack) return {};
  return EvenSpacing{first / ticksPerFrame, step / ticksPerFrame};
}

// Every sample where the first ones promise it, in whole ticks.
bool IsExact(const Times& times) {
  const std::int64_t interval = std::int64_t{times.At(1)} - times.At(0);
  return LagBehind(times, static_cast<double>(interval)).Spread() == 0;
}

}  // namespace

std::optional<EvenSpacing> FindEvenSpacing(const Times& times, double ticksPerFrame,
                                           std::uint32_t soleInterval) {
  if (times.Count() == 0) return {};
  const bool wholeFrames = ticksPerFrame == std::floor(ticksPerFrame);
  if (times.Count() == 1) {
    const double first = times.At(0);
    const double interval = soleInterval / ticksPerFrame;
    if (wholeFrames) return EvenSpacing{first / ticksPerFrame, interval};
    const auto start = SimplestFrames(first - kHalfTick, first + kHalfTick, ticksPerFrame);
    const auto rounded =
        SimplestFrames(soleInterval - kHalfTick, soleInterval + kHalfTick, ticksPerFrame);
    return EvenSpacing{start.value_or(first / ticksPerFrame), rounded.value_or(interval)};
  }
  if (wholeFrames && IsExact(times)) {
    return EvenSpacing{times.At(0) / ticksPerFrame,
                       (double(times.At(1)) - times.At(0)) / ticksPerFrame};
  }
  if (const auto rounded = FindRounded(times, ticksPerFrame)) return rounded;
  return FindNear(times, ticksPerFrame);
}

}  // namespace kelsdk::nc
