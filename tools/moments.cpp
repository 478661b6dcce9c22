#include "tools/moments.h"

#include <cmath>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;
using kelsdk::KelTime;

}  // namespace

bool FrameRange::Holds(const Moment& moment) const {
  if (IsOpen()) return true;
  if (!moment.frame) {
    throw ToolError(eUsage, "the cache has no frame rate, so that no frames can be chosen");
  }
  return (!from || *moment.frame >= *from - kFrameTolerance) &&
         (!to || *moment.frame <= *to + kFrameTolerance);
}

Moments::Moments(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
                 bool everyFrame)
    : cache_(&cache),
      summary_(&summary),
      channel_(&channel),
      everyFrame_(everyFrame && !summary.pc2),
      count_(channel.samples) {
  if (!everyFrame_ || !channel.start || !channel.end) return;
  const double rate = summary.frameRate.value_or(kAssumedFrameRate);
  firstFrame_ = std::llround(std::ceil(*channel.start * rate - kFrameTolerance));
  const long long last = std::llround(std::floor(*channel.end * rate + kFrameTolerance));
  count_ = last >= firstFrame_ ? static_cast<unsigned int>(last - firstFrame_ + 1) : 0;
}

Moment Moments::FromSeconds(double seconds, std::optional<unsigned int> sample) const {
  Moment moment;
  moment.seconds = seconds;
  moment.time = KelTime::FromSeconds(seconds);
  moment.sample = sample;
  if (summary_->frameRate) moment.frame = seconds * *summary_->frameRate;
  return moment;
}

Moment Moments::At(unsigned int index) {
  if (summary_->pc2) {
    Moment moment;
    moment.sample = index;
    moment.frame = summary_->pc2->startFrame + index * summary_->pc2->sampleRate;
    moment.seconds = *moment.frame / *summary_->frameRate;
    moment.time = KelTime::FromFrame(index);
    return moment;
  }
  if (everyFrame_) {
    const double frame = double(firstFrame_ + index);
    Moment moment = FromSeconds(frame / *summary_->frameRate, {});
    moment.frame = frame;
    return moment;
  }
  if (cache_->format() == KelCache::eNCFormat) {
    KelTime time;
    kelsdk::KelStatus status;
    if (!(*cache_)->GetDataTime(channel_->index, index, time, &status)) {
      cache_->Fail(status, "sample " + std::to_string(index) + " has no time");
    }
    Moment moment = FromSeconds(time.GetSeconds(), index);
    moment.time = time;
    return moment;
  }
  double seconds = 0;
  if (!cache_->Alembic().GetSampleTime(static_cast<unsigned int>(channel_->index), index,
                                       seconds)) {
    throw Failed(cache_->file(), "sample " + std::to_string(index) + " has no time");
  }
  return FromSeconds(seconds, index);
}

std::optional<Moment> Moments::AtFrame(double frame) {
  if (summary_->pc2) {
    const PC2Summary& pc2 = *summary_->pc2;
    const double sample = std::floor((frame - pc2.startFrame) / pc2.sampleRate + kFrameTolerance);
    // Written so that a rate of zero or NaN, which names no sample, is outside too.
    if (!(sample >= 0 && sample < pc2.samples)) return {};
    return At(static_cast<unsigned int>(sample));
  }
  if (!channel_->start || !summary_->frameRate) return {};
  const double seconds = frame / *summary_->frameRate;
  const double tolerance = kFrameTolerance / *summary_->frameRate;
  if (seconds < *channel_->start - tolerance || seconds > *channel_->end + tolerance) return {};
  Moment moment = FromSeconds(seconds, {});
  moment.frame = frame;
  return moment;
}

}  // namespace kelcache
