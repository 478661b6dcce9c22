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
  HeldTrack(std::unique_ptr<Track> track, const Moment& sample, const Moment& begin)
      : Track(track->source(), track->channel()),
        track_(std::move(track)),
        sample_(sample),
        begin_(begin) {
    begin_.sample.reset();
  }

  std::uint64_t Count() const override { return track_->Count() + 1; }
  Moment At(std::uint64_t index) override { return index == 0 ? begin_ : track_->At(index - 1); }
  bool Descends() const override { return false; }
  unsigned int Stride() const override { return track_->Stride(); }
  double DeclaredFrames() const override { return DeclaredFramesOf(source_, channel_); }
  Array Fetch(const Moment& moment) override {
    return IsBegin(moment) ? source_.Fetch(channel_, sample_) : track_->Fetch(moment);
  }
  unsigned int ElementsAt(const Moment& moment) override {
    return IsBegin(moment) ? source_.ElementsAt(channel_, sample_) : track_->ElementsAt(moment);
  }
  std::optional<SampleRun> RunAt(const Moment& moment) override { return track_->RunAt(moment); }

 private:
  bool IsBegin(const Moment& moment) const {
    return !moment.sample && moment.ticks == begin_.ticks;
  }

  std::unique_ptr<Track> track_;
  Moment sample_;
  Moment begin_;
};

std::unique_ptr<Track> Untransformed(Source& source, const ChannelSummary& channel,
                                     const TrackOptions& options) {
  if (options.resample != EResample::eNone) return MakeFrameTrack(source, channel, options);
  return std::make_unique<SampleTrack>(source, channel, options);
}

std::unique_ptr<Track> WithTransform(std::unique_ptr<Track> track, const TrackOptions& options) {
  if (!options.transform) return track;
  return Transformed(std::move(track), *options.transform);
}

}  // namespace

std::unique_ptr<Track> MakeTrack(Source& source, const ChannelSummary& channel,
                                 const TrackOptions& options) {
  return WithTransform(Untransformed(source, channel, options), options);
}

std::unique_ptr<Track> MakeHeldTrack(Source& source, const ChannelSummary& channel,
                                     const TrackOptions& options, const Moment& begin) {
  if (!options.range.from) return nullptr;
  Moments samples = source.MomentsOf(channel);
  const MomentRange before = samples.In({{}, options.range.from});
  if (before.Count() == 0) return nullptr;
  auto held = std::make_unique<HeldTrack>(Untransformed(source, channel, options),
                                          samples.At(before.end - 1), begin);
  return WithTransform(std::move(held), options);
}

}  // namespace kelcache
