#include "tools/track.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

class SampleTrack : public Track {
 public:
  SampleTrack(Source& source, const ChannelSummary& channel, const FrameRange& range)
      : Track(source, channel), range_(samples_.In(range)) {}

  std::uint64_t Count() const override { return range_.Count(); }
  Moment At(std::uint64_t index) override { return samples_.At(range_.first + index); }
  bool Descends() const override { return samples_.Descends(); }
  Array Fetch(const Moment& moment) override { return source_.Fetch(channel_, moment); }
  unsigned int ElementsAt(const Moment& moment) override {
    return source_.ElementsAt(channel_, moment);
  }
  std::optional<SampleRun> RunAt(const Moment& moment) override {
    return source_.RunAt(channel_, moment);
  }

 private:
  MomentRange range_;
};

class FrameTrack : public Track {
 public:
  FrameTrack(Source& source, const ChannelSummary& channel, const FrameRange& range,
             EResample resample)
      : Track(source, channel),
        linear_(resample == EResample::eLinear && !IsInteger(channel.value)) {
    const kelsdk::KelFrameRate& rate = source.summary().rate;
    source.summary().ExpectRate();
    ticksPerFrame_ = kTicksPerSecond / rate.PerSecond();
    if (samples_.count() == 0) return;
    const double one = *samples_.At(0).frame;
    const double other = *samples_.At(samples_.count() - 1).frame;
    const double from = std::max(std::min(one, other), range.from.value_or(-HUGE_VAL));
    const double to = std::min(std::max(one, other), range.to.value_or(HUGE_VAL));
    firstFrame_ = std::ceil(from - samples_.tolerance());
    const double last = std::floor(to + samples_.tolerance());
    constexpr double kMostFrames = 1e15;
    if (!(std::fabs(firstFrame_) < kMostFrames && std::fabs(last) < kMostFrames)) {
      throw Failed(source.summary().file, "the times lie too far out to be counted in frames");
    }
    if (last >= firstFrame_) count_ = static_cast<std::uint64_t>(last - firstFrame_) + 1;
  }

  std::uint64_t Count() const override { return count_; }
  bool Descends() const override { return false; }

  Moment At(std::uint64_t index) override {
    Moment moment;
    moment.frame = firstFrame_ + double(index);
    moment.ticks = *moment.frame * ticksPerFrame_;
    moment.seconds = moment.ticks / kTicksPerSecond;
    return moment;
  }

  Array Fetch(const Moment& moment) override {
    const Moment before = SampleBefore(moment);
    const double distance = *moment.frame - *before.frame;
    const bool between = std::fabs(distance) > samples_.tolerance() &&
                         *before.sample + std::uint64_t{1} < samples_.count();
    if (!linear_ || !between) return source_.Fetch(channel_, before);
    const Moment after = samples_.At(*before.sample + std::uint64_t{1});
    return Blend(source_.Fetch(channel_, before), after, distance / (*after.frame - *before.frame));
  }

  unsigned int ElementsAt(const Moment& moment) override {
    return source_.ElementsAt(channel_, SampleBefore(moment));
  }
  std::optional<SampleRun> RunAt(const Moment& /*moment*/) override { return {}; }

 private:
  Moment SampleBefore(const Moment& moment) {
    const auto sample = samples_.AtFrame(*moment.frame);
    if (!sample) throw Failed(source_.summary().file, MomentText(moment) + ": no sample there");
    return *sample;
  }

  Array Blend(const Array& before, const Moment& after, double share) {
    Array blended = before;
    const std::size_t bytes = before.Count() * SizeOf(before.type);
    blended_.resize(bytes / sizeof(double) + 1);
    if (bytes != 0) std::memcpy(blended_.data(), before.values, bytes);
    blended.values = blended_.data();
    const Array next = source_.Fetch(channel_, after);
    if (next.elements != blended.elements) return blended;
    if (blended.type == ValueType::eFloat32) {
      BlendValues(reinterpret_cast<float*>(blended_.data()), next, share);
    } else {
      BlendValues(blended_.data(), next, share);
    }
    return blended;
  }

  template <typename Value>
  static void BlendValues(Value* values, const Array& next, double share) {
    const auto* const others = static_cast<const Value*>(next.values);
    for (std::size_t i = 0; i < next.Count(); ++i) {
      values[i] = static_cast<Value>(double(values[i]) * (1 - share) + double(others[i]) * share);
    }
  }

  bool linear_;
  double ticksPerFrame_ = 0;
  double firstFrame_ = 0;
  std::uint64_t count_ = 0;
  std::vector<double> blended_;
};

}  // namespace

std::unique_ptr<Track> MakeTrack(Source& source, const ChannelSummary& channel,
                                 const FrameRange& range, EResample resample) {
  if (resample == EResample::eNone) return std::make_unique<SampleTrack>(source, channel, range);
  return std::make_unique<FrameTrack>(source, channel, range, resample);
}

}  // namespace kelcache
