#pragma once

#include <optional>

#include "tools/summary.h"

namespace kelcache {

/// A moment that a person names by its scene frame, and the time that fetches it.
struct Moment {
  std::optional<double> frame;         ///< scene frame; empty when the cache has no frame rate
  std::optional<unsigned int> sample;  ///< sample number, where moments are samples
  double seconds = 0;
  kelsdk::KelTime time;
};

/// Frames that a person types may miss a sample by rounding.
inline constexpr double kFrameTolerance = 1e-4;

/// The scene frames that a verb is to take, both ends included; an end that is not given is open.
struct FrameRange {
  std::optional<double> from;
  std::optional<double> to;

  bool IsOpen() const { return !from && !to; }
  /// Throws eUsage for a moment that has no frame, unless the range is open.
  bool Holds(const Moment& moment) const;
};

/// The moments of one channel: its samples, or the frames of a rate that the user gave.
///
/// Scene frames and the fetch differ in PC2 caches: scene frame = start + sample x rate, but the
/// fetch takes the time of frame I for sample I. This is the one place that knows.
class Moments {
 public:
  /// @param everyFrame  visit whole scene frames at the summary's rate instead of samples
  Moments(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
          bool everyFrame);

  unsigned int count() const { return count_; }
  Moment At(unsigned int index);

  /// The moment at a scene frame: that of the sample there, else of the last one before it. Empty
  /// outside the channel's range.
  std::optional<Moment> AtFrame(double frame);

 private:
  Moment FromSeconds(double seconds, std::optional<unsigned int> sample) const;

  CacheFile* cache_;
  const CacheSummary* summary_;
  const ChannelSummary* channel_;
  bool everyFrame_;
  long long firstFrame_ = 0;
  unsigned int count_ = 0;
};

}  // namespace kelcache
