#pragma once

#include <memory>

#include "tools/source.h"

namespace kelcache {

/// What becomes of frames between samples when a channel is taken frame by frame.
enum class EResample {
  eNone,    ///< it is not: samples stay where they are
  eHold,    ///< the last sample before
  eLinear,  ///< points between the two samples; integers, and counts that change, are held
};

/// One channel on its way into a copy: the moments that are taken and the values at each.
class Track {
 public:
  Track(Source& source, const ChannelSummary& channel)
      : source_(source), channel_(channel), samples_(source.MomentsOf(channel)) {}
  virtual ~Track() = default;
  Track(const Track&) = delete;
  Track& operator=(const Track&) = delete;

  const ChannelSummary& channel() const { return channel_; }
  virtual std::uint64_t Count() const = 0;
  virtual Moment At(std::uint64_t index) = 0;
  /// True when later moments lie at earlier frames.
  virtual bool Descends() const = 0;
  /// Valid until the next fetch from the source. Throws eFailed, as do those below.
  virtual Array Fetch(const Moment& moment) = 0;
  virtual unsigned int ElementsAt(const Moment& moment) = 0;
  /// What Source::RunAt says, where moments are samples.
  virtual std::optional<SampleRun> RunAt(const Moment& moment) = 0;

 protected:
  Source& source_;
  const ChannelSummary& channel_;
  Moments samples_;
};

/// The samples in a range of frames, or one value for each whole frame in it.
std::unique_ptr<Track> MakeTrack(Source& source, const ChannelSummary& channel,
                                 const FrameRange& range, EResample resample);

}  // namespace kelcache
