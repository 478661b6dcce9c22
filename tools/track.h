#pragma once

#include <memory>

#include "tools/source.h"
#include "tools/transform.h"

namespace kelcache {

/// What becomes of frames between samples when a channel is taken frame by frame.
enum class EResample {
  eNone,    ///< it is not: samples stay where they are
  eHold,    ///< the last sample before
  eLinear,  ///< points between the two samples; integers, and counts that change, are held
  eCubic,   ///< the same on a curve through four samples
};

/// What is taken of channels.
struct TrackOptions {
  FrameRange range;        ///< scene frames of the source
  unsigned int every = 1;  ///< of how many samples, from the first in the range, one is taken
  EResample resample = EResample::eNone;
  kelsdk::KelFrameRate resampleRate = {0, 0};  ///< of the frames taken; else the source's
  std::optional<Transform> transform;
};

/// One channel on its way into a copy: the moments that are taken and the values at each.
class Track {
 public:
  Track(Source& source, const ChannelSummary& channel) : source_(source), channel_(channel) {}
  virtual ~Track() = default;
  Track(const Track&) = delete;
  Track& operator=(const Track&) = delete;

  Source& source() const { return source_; }
  const ChannelSummary& channel() const { return channel_; }
  virtual std::uint64_t Count() const = 0;
  virtual Moment At(std::uint64_t index) = 0;
  /// True when later moments lie at earlier frames.
  virtual bool Descends() const = 0;
  /// Samples from one moment to the next, where moments are samples.
  virtual unsigned int Stride() const { return 1; }
  /// The interval that a copy declares, in frames of the source; 0 for none.
  virtual double DeclaredFrames() const = 0;
  /// Valid until the next fetch from the track or its source. Throws eFailed, as do those below.
  virtual Array Fetch(const Moment& moment) = 0;
  virtual unsigned int ElementsAt(const Moment& moment) = 0;
  /// What Source::RunAt says, where moments are samples.
  virtual std::optional<SampleRun> RunAt(const Moment& moment) = 0;

 protected:
  Source& source_;
  const ChannelSummary& channel_;
};

/// The samples in a range of frames, or one value for each whole frame in it. Throws eUsage for a
/// channel of which nothing says how it is transformed.
std::unique_ptr<Track> MakeTrack(Source& source, const ChannelSummary& channel,
                                 const TrackOptions& options);

/// The same behind the last sample before the range, which holds when the range begins and is put
/// at `begin`. Null where there is none.
std::unique_ptr<Track> MakeHeldTrack(Source& source, const ChannelSummary& channel,
                                     const TrackOptions& options, const Moment& begin);

}  // namespace kelcache
