#include "tools/moments.h"

#include <algorithm>
#include <cmath>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

// Beyond it a double tells neighbouring frames apart no longer.
constexpr double kMostFrames = double(1LL << 52);

}  // namespace

Moments::Moments(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
                 bool everyFrame)
    : cache_(&cache),
      summary_(&summary),
      channel_(&channel),
      everyFrame_(everyFrame && !summary.pc2),
      count_(channel.samples) {
  if (summary.rate.IsValid()) ticksPerFrame_ = kTicksPerSecond / summary.rate.PerSecond();
  // A frame may lie half a tick beside the sample that was rounded to it.
  if (summary.onTicks && ticksPerFrame_ > 0) {
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

Moment Moments::At(std::uint64_t index) {
  if (!everyFrame_) {
    const auto sample = static_cast<unsigned int>(index);
    return RowOf(summary_->format).momentOf(*cache_, *summary_, *channel_, sample);
  }
  const double frame = firstFrame_ + double(index);
  Moment moment = MomentAt(*summary_, frame * ticksPerFrame_, {});
  moment.frame = frame;
  return moment;
}

// The moments that come first in the order of their frames, counted.
template <typename IsBefore>
std::uint64_t Moments::CountWhere(IsBefore&& isBefore) {
  std::uint64_t low = 0;
  std::uint64_t high = count_;
  while (low < high) {
    const std::uint64_t middle = low + (high - low) / 2;
    const bool before = isBefore(At(Descends() ? count_ - 1 - middle : middle));
    (before ? low : high) = before ? middle + 1 : middle;
  }
  return low;
}

// The moments before a frame, or those at it too.
std::uint64_t Moments::CountBefore(double frame, bool included) {
  return CountWhere(
      [=](const Moment& at) { return included ? *at.frame <= frame : *at.frame < frame; });
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

std::optional<Moment> Moments::AtTime(double seconds) {
  if (summary_->pc2) return AtFrame(seconds * summary_->rate.PerSecond());
  const double tolerance = summary_->onTicks ? kHalfTick / kTicksPerSecond : kSameClock;
  const std::uint64_t upTo =
      CountWhere([=](const Moment& at) { return at.seconds <= seconds + tolerance; });
  if (upTo == 0) return {};
  Moment moment = At(upTo - 1);
  if (upTo == count_ && seconds > moment.seconds + tolerance) return {};
  return moment;
}

}  // namespace kelcache
