#pragma once

#include <memory>
#include <vector>

#include "backends/zuCacheFileInterface.h"
#include "tools/moments.h"

namespace kelcache {

using ElementType = kelsdk::zuCacheData::zuCacheDataType;

/// A moment's data of one channel, valid until the next fetch.
struct FetchedArray {
  const void* data = nullptr;  ///< elements in the channel's element type
  unsigned int elements = 0;
};

/// An open cache as the verbs that copy see it: channels, their moments, their data. Channels of NC
/// caches keep their own element type; all others come as floats.
class Source {
 public:
  /// @param frameRate  frames per second that the user gave, or 0: NC and Alembic caches are then
  ///                   visited at every frame of it
  Source(const std::string& file, Format format, double frameRate);

  const CacheSummary& summary() const { return summary_; }
  CacheFile& cache() { return cache_; }

  ElementType TypeOf(const ChannelSummary& channel);
  Moments MomentsOf(const ChannelSummary& channel);
  /// Throws eFailed with the moment in words.
  FetchedArray Fetch(const ChannelSummary& channel, const Moment& moment);
  /// The same as floats, whatever the type; the length in floats.
  const float* FetchFloats(const ChannelSummary& channel, const Moment& moment,
                           unsigned int* length);

  /// The channel that a user names by number or name; throws eUsage for one that is not there.
  const ChannelSummary& FindChannel(const std::string& numberOrName) const;

 private:
  CacheFile cache_;
  CacheSummary summary_;
  bool everyFrame_;
  std::vector<double> array_;  // room for any type, suitably aligned
};

}  // namespace kelcache
