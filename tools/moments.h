#pragma once

#include <optional>

#include "tools/formats.h"

namespace kelcache {

/// Frames that a person types may miss a sample by rounding.
inline constexpr double kFrameTolerance = 1e-4;

/// The scene frames that a verb is to take, both ends included; an end that is not given is open.
struct FrameRange {
  std::optional<double> from;
  std::optional<double> to;

  bool IsOpen() const { return !from && !to; }
};

/// The moments [first, end) of a channel.
struct MomentRange {
  std::uint64_t first = 0;
  std::uint64_t end = 0;

  std::uint64_t Count() const { return end - first; }
};

/// The moments of one channel, looked up when asked for: the samples that the cache really holds,
/// or the frames of its frame rate.
class Moments {
 public:
  /// @param everyFrame  the whole scene frames at the summary's rate instead of samples; PC2 caches
  ///                    are visited by samples all the same
  Moments(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
          bool everyFrame);

  std::uint64_t count() const { return count_; }
  Moment At(std::uint64_t index);

  /// Those whose frames lie in a range. Throws eUsage for a range of a cache without frames.
  MomentRange In(const FrameRange& range);

  /// The last sample at or before a scene frame. Empty outside the channel's range.
  std::optional<Moment> AtFrame(double frame);
  /// Likewise at or before a time in seconds; needs no frame rate.
  std::optional<Moment> AtTime(double seconds);

  /// How far, in frames, a sample may lie beside the frame that means it.
  double tolerance() const { return frameTolerance_; }

  /// True when later moments lie at earlier frames, as in a PC2 file with a negative rate.
  bool Descends() const { return summary_->pc2 && summary_->pc2->sampleRate < 0; }

 private:
  template <typename IsBefore>
  std::uint64_t CountWhere(IsBefore&& isBefore);
  std::uint64_t CountBefore(double frame, bool included);

  CacheFile* cache_;
  const CacheSummary* summary_;
  const ChannelSummary* channel_;
  bool everyFrame_;
  double ticksPerFrame_ = 0;  // exact; 0 without a frame rate
  double frameTolerance_ = kFrameTolerance;
  double firstFrame_ = 0;
  std::uint64_t count_ = 0;
};

}  // namespace kelcache
