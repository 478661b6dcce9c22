#pragma once

#include <memory>
#include <vector>

#include "tools/moments.h"
#include "tools/values.h"
#include "tools/watch.h"

namespace kelcache {

/// An open cache as the verbs that show, compare and copy see it: channels, their moments, their
/// values as they are stored.
class Source {
 public:
  /// @param rate        frames per second that the user gave; else not valid
  /// @param everyFrame  visit NC and Alembic caches at every frame of their rate, not at samples
  Source(const std::string& file, Format format, const kelsdk::KelFrameRate& rate = {0, 0},
         bool everyFrame = false);

  const CacheSummary& summary() const { return summary_; }
  CacheFile& cache() { return cache_; }

  Moments MomentsOf(const ChannelSummary& channel);

  /// The elements at a moment: of an archive those of its sample, not of the largest. Throws
  /// eFailed with the moment in words, as do those below.
  unsigned int ElementsAt(const ChannelSummary& channel, const Moment& moment);

  /// Valid until the next fetch.
  Array Fetch(const ChannelSummary& channel, const Moment& moment);

  /// Likewise, in the caller's room.
  Array FetchInto(const ChannelSummary& channel, const Moment& moment, Room* room);

  /// Several samples that follow one another, as stored, where the format reads them at once. False
  /// where it does not, and for samples that can not be read; one by one they tell why.
  bool FetchRun(unsigned int firstSample, unsigned int samples, void* values);

  /// Through the object's own fetch: floats, of an archive as many as its largest sample has.
  const float* FetchFloats(const ChannelSummary& channel, const Moment& moment,
                           unsigned int* length);

  /// Of an archive's sample; empty for other caches and for moments between samples.
  std::optional<SampleRun> RunAt(const ChannelSummary& channel, const Moment& moment);

 private:
  CacheFile cache_;
  CacheSummary summary_;
  bool everyFrame_;
  Room room_;
};

/// Notes that a PC2 file is cut short, which is then served for its whole samples, or that an
/// archive has damaged parts, without which it is served.
/// @return whether samples are missing that lie in the range, or parts
bool NoteWhatIsMissing(const Source& source, const FrameRange& range, Watch& watch);

}  // namespace kelcache
