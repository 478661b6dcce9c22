#include "tools/track.h"

#include "tools/frame_track.h"
#include "tools/transformed_track.h"

namespace kelcache {
namespace {

double DeclaredFramesOf(const Source& source, const ChannelSummary& channel) {
  const kelsdk::KelFrameRate& rate = source.summary().rate;
  return rate.IsValid() ? channel.declaredTicks * rate.PerSecond() / kTicksPerSecond : 0;
}

class SampleTrack : public Track {
 public:
  SampleTrack(Source& source, const ChannelSummary& channel, const TrackOptions& options)
      : Track(source, channel),
        samples_(source.MomentsOf(channel)),
        range_(samples_.In(options.range)),
        every_(options.every) {}

  std::uint64_t Count() const override { return (range_.Count() + every_ - 1) / every_; }
  Moment At(std::uint64_t index) override { return samples_.At(range_.first + index * every_); }
  bool Descends() const override { return samples_.Descends(); }
  unsigned int Stride() const override { return every_; }
  double DeclaredFrames() const override { return DeclaredFramesOf(source_, channel_) * every_; }
  Array Fetch(const Moment& moment) override { return source_.Fetch(channel_, moment); }
  unsigned int ElementsAt(const Moment& moment) override {
    return source_.ElementsAt(channel_, moment);
  }
  std::optional<SampleRun> RunAt(const Moment& moment) override {
    return source_.RunAt(channel_, moment);
  }

 private:
  Moments samples_;
  MomentRange range_;
  unsigned int every_;
};

class HeldTrack : public Track {
 public:
  HeldTrack(Source& source, const ChannelSummary& channel, const Moment& sample, double frame)
      : Track(source, channel), sample_(sample) {
    const CacheSummary& summary = source.summary();
    place_ = MomentAt(summary, frame * kTicksPerSecond / summary.rate.PerSecond(), {});
  }

  std::uint64_t Count() const override { return 1; }
  Moment At(std::uint64_t /*index*/) override { return place_; }
  bool Descends() const override { return false; }
  double DeclaredFrames() const override { return DeclaredFramesOf(source_, channel_); }
  Array Fetch(const Moment& /*moment*/) override { return source_.Fetch(channel_, sample_); }
  unsigned int ElementsAt(const Moment& /*moment*/) override {
    return source_.ElementsAt(channel_, sample_);
  }
  std::optional<SampleRun> RunAt(const Moment& /*moment*/) override { return {}; }

 private:
  Moment sample_;
  Moment place_;
};

std::unique_ptr<Track> WithTransform(std::unique_ptr<Track> track, const TrackOptions& options) {
  if (!options.transform) return track;
  return Transformed(std::move(track), *options.transform);
}

}  // namespace

std::unique_ptr<Track> MakeHeldTrack(Source& source, const ChannelSummary& channel,
                                     const TrackOptions& options) {
  if (!options.range.from) return nullptr;
  Moments samples = source.MomentsOf(channel);
  const MomentRange before = samples.In({{}, options.range.from});
  if (before.Count() == 0) return nullptr;
  return WithTransform(
      std::make_unique<HeldTrack>(source, channel, samples.At(before.end - 1), *options.range.from),
      options);
}

std::unique_ptr<Track> MakeTrack(Source& source, const ChannelSummary& channel,
                                 const TrackOptions& options) {
  if (options.resample != EResample::eNone) {
    return WithTransform(MakeFrameTrack(source, channel, options), options);
  }
  return WithTransform(std::make_unique<SampleTrack>(source, channel, options), options);
}

}  // namespace kelcache
