#include "tools/moment.h"

#include <algorithm>
#include <cmath>

#include "host/KelFraction.h"
#include "tools/numbers.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::KelFraction;

// What a division has left beside a whole frame.
double Tidy(double frame) {
  const double whole = std::round(frame);
  return std::fabs(frame - whole) <= 1e-9 * std::max(1.0, std::fabs(frame)) ? whole : frame;
}

}  // namespace

double FrameAt(const CacheSummary& summary, double ticks) {
  const double ticksPerFrame = kTicksPerSecond / summary.rate.PerSecond();
  const double frame = ticks / ticksPerFrame;
  const bool wholeTicks = ticksPerFrame == std::floor(ticksPerFrame);
  if (!summary.onTicks || wholeTicks) return Tidy(frame);
  const KelFraction simplest = KelFraction::Simplest((ticks - kHalfTick) / ticksPerFrame,
                                                     (ticks + kHalfTick) / ticksPerFrame);
  return simplest.IsValid() ? simplest.Value() : frame;
}

namespace {

std::optional<double> FrameOf(const CacheSummary& summary, const std::optional<double>& seconds) {
  if (!seconds || !summary.rate.IsValid()) return {};
  return FrameAt(summary, *seconds * kTicksPerSecond);
}

}  // namespace

std::optional<double> FirstFrame(const CacheSummary& summary) {
  if (summary.pc2 && summary.pc2->wholeSamples != 0) return summary.pc2->startFrame;
  return FrameOf(summary, summary.start());
}

std::optional<double> LastFrame(const CacheSummary& summary) {
  if (summary.pc2 && summary.pc2->wholeSamples != 0) {
    return summary.pc2->startFrame + (summary.pc2->wholeSamples - 1.0) * summary.pc2->sampleRate;
  }
  return FrameOf(summary, summary.end());
}

Moment MomentAt(const CacheSummary& summary, double ticks, std::optional<unsigned int> sample) {
  Moment moment;
  moment.ticks = ticks;
  moment.seconds = ticks / kTicksPerSecond;
  moment.time = kelsdk::KelTime::FromSeconds(moment.seconds);
  moment.sample = sample;
  if (summary.rate.IsValid()) moment.frame = FrameAt(summary, ticks);
  return moment;
}

std::string MomentText(const Moment& moment) {
  return moment.frame ? "frame " + RoundedText(*moment.frame) : RoundedText(moment.seconds) + " s";
}

void FailAt(const CacheSummary& summary, const ChannelSummary& channel, const Moment& moment,
            const std::string& why) {
  const std::string name = channel.name.value_or(std::to_string(channel.index));
  const bool isOneOfSeveral = summary.channels.size() > 1;
  throw Failed(summary.file, (isOneOfSeveral ? "channel " + name + ", " : std::string()) +
                                 MomentText(moment) + ": " + why);
}

}  // namespace kelcache
