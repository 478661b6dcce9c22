#include "tools/moments.h"

#include <algorithm>
#include <cmath>

#include "host/KelFraction.h"
#include "tools/output.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;
using kelsdk::KelFraction;
using kelsdk::KelTime;

// A little more, so that rounding does not lose a frame that lies right between two ticks.
constexpr double kHalfTick = 0.5 + 1e-6;
constexpr long long kUnitsPerTick = KelTime::kUnitsPerSecond / kTicksPerSecond;

// Beyond it a double tells neighbouring frames apart no longer.
constexpr double kMostFrames = double(1LL << 52);

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
  if (summary.format != KelCache::eNCFormat || wholeTicks) return Tidy(frame);
  const KelFraction simplest = KelFraction::Simplest((ticks - kHalfTick) / ticksPerFrame,
                                                     (ticks + kHalfTick) / ticksPerFrame);
  return simplest.IsValid() ? simplest.Value() : frame;
}

std::string MomentText(const Moment& moment) {
  return moment.frame ? "frame " + RoundedText(*moment.frame) : RoundedText(moment.seconds) + " s";
}

Moments::Moments(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
                 bool everyFrame)
    : cache_(&cache),
      summary_(&summary),
      channel_(&channel),
      everyFrame_(everyFrame && !summary.pc2),
      count_(channel.samples) {
  if (summary.rate.IsValid()) ticksPerFrame_ = kTicksPerSecond / summary.rate.PerSecond();
  // Times of NC caches are whole ticks: a frame may lie half of one beside its sample.
  if (summary.format == KelCache::eNCFormat && ticksPerFrame_ > 0) {
    frameTolerance_ = std::max(kFrameTolerance, kHalfTick / ticksPerFrame_);
  }
  if (!everyFrame_ || !channel.start || !channel.end) return;
  const double perSecond = kTicksPerSecond / ticksPerFrame_;
  firstFrame_ = std::ceil(*channel.start * perSecond - frameTolerance_);
  const double last = std::floor(*channel.end * perSecond + frameTolerance_);
  if (!(std::fabs(firstFrame_) < kMostFrames && std::fabs(last) < kMostFrames)) {
    throw Failed(summary.file, "the times lie too far out to be counted in frames");
  }
  count_ = last >= firstFrame_ ? static_cast<std::uint64_t>(last - firstFrame_) + 1 : 0;
}

Moment Moments::AtTicks(double ticks, std::optional<unsigned int> sample) const {
  Moment moment;
  moment.ticks = ticks;
  moment.seconds = ticks / kTicksPerSecond;
  moment.time = KelTime::FromSeconds(moment.seconds);
  moment.sample = sample;
  if (ticksPerFrame_ > 0) moment.frame = FrameAt(*summary_, ticks);
  return moment;
}

Moment Moments::AtPC2Sample(std::uint64_t sample) const {
  const PC2Summary& pc2 = *summary_->pc2;
  Moment moment;
  moment.sample = static_cast<unsigned int>(sample);
  moment.frame = pc2.startFrame + double(sample) * pc2.sampleRate;
  moment.ticks = *moment.frame * ticksPerFrame_;
  moment.seconds = *moment.frame / summary_->rate.PerSecond();
  moment.time = KelTime::FromFrame(static_cast<long long>(sample));
  return moment;
}

Moment Moments::At(std::uint64_t index) {
  if (summary_->pc2) return AtPC2Sample(index);
  if (everyFrame_) {
    const double frame = firstFrame_ + double(index);
    Moment moment = AtTicks(frame * ticksPerFrame_, {});
    moment.frame = frame;
    return moment;
  }
  const auto sample = static_cast<unsigned int>(index);
  if (summary_->format == KelCache::eNCFormat) {
    KelTime time;
    kelsdk::KelStatus status;
    if (!(*cache_)->GetDataTime(channel_->index, sample, time, &status)) {
      cache_->Fail(status, "sample " + std::to_string(sample) + " has no time");
    }
    Moment moment = AtTicks(double(time.Get() / kUnitsPerTick), sample);
    moment.time = time;
    return moment;
  }
  double seconds = 0;
  if (!cache_->Alembic().GetSampleTime(static_cast<unsigned int>(channel_->index), sample,
                                       seconds)) {
    throw Failed(cache_->file(), "sample " + std::to_string(sample) + " has no time");
  }
  Moment moment = AtTicks(seconds * kTicksPerSecond, sample);
  moment.seconds = seconds;
  moment.time = KelTime::FromSeconds(seconds);
  return moment;
}

// The moments before a frame, or those at it too, counted in the order of their frames.
std::uint64_t Moments::CountBefore(double frame, bool included) {
  std::uint64_t low = 0;
  std::uint64_t high = count_;
  while (low < high) {
    const std::uint64_t middle = low + (high - low) / 2;
    const double there = *At(Descends() ? count_ - 1 - middle : middle).frame;
    const bool before = included ? there <= frame : there < frame;
    (before ? low : high) = before ? middle + 1 : middle;
  }
  return low;
}

MomentRange Moments::In(const FrameRange& range) {
  if (range.IsOpen()) return {0, count_};
  if (ticksPerFrame_ <= 0) {
    throw ToolError(eUsage, "the cache has no frame rate, so that no frames can be chosen");
  }
  // Where the header says no number, no sample has a frame.
  if (count_ != 0 && !std::isfinite(*At(count_ - 1).frame)) return {};
  const std::uint64_t first = range.from ? CountBefore(*range.from - frameTolerance_, false) : 0;
  const std::uint64_t end = range.to ? CountBefore(*range.to + frameTolerance_, true) : count_;
  if (end <= first) return {};
  return Descends() ? MomentRange{count_ - end, count_ - first} : MomentRange{first, end};
}

std::optional<Moment> Moments::AtFrame(double frame) {
  if (summary_->pc2) {
    const PC2Summary& pc2 = *summary_->pc2;
    const double sample = std::floor((frame - pc2.startFrame) / pc2.sampleRate + kFrameTolerance);
    // Written so that a rate of zero or NaN, which names no sample, is outside too.
    if (!(sample >= 0 && sample < double(count_))) return {};
    return At(static_cast<std::uint64_t>(sample));
  }
  if (count_ == 0 || ticksPerFrame_ <= 0) return {};
  const std::uint64_t upTo = CountBefore(frame + frameTolerance_, true);
  if (upTo == 0) return {};
  Moment moment = At(upTo - 1);
  if (upTo == count_ && frame > *moment.frame + frameTolerance_) return {};
  return moment;
}

}  // namespace kelcache
