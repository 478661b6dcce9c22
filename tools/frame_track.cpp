#include "tools/frame_track.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

// The samples around a frame: one before the two that it lies between, and one after.
constexpr std::size_t kAround = 4;
using Weights = std::array<double, kAround>;

// What the samples at `times` count for at a time between the second and the third. `isThere` says
// which of the outer two there are.
//
// A cubic Hermite curve whose slope at a sample is that of the parabola through it and both its
// neighbours; for even steps that is the Catmull-Rom spline. Where an outer sample is missing, the
// curve is the parabola through the other three, and a line where both are.
Weights CubicWeights(const Weights& times, const std::array<bool, kAround>& isThere, double time) {
  const double step = times[2] - times[1];
  const Weights chord = {0, -1 / step, 1 / step, 0};
  const auto slopeAt = [&](std::size_t sample) {
    const double before = times[sample] - times[sample - 1];
    const double after = times[sample + 1] - times[sample];
    Weights slope = {};
    slope[sample - 1] = -after / (before * (before + after));
    slope[sample + 1] = before / (after * (before + after));
    slope[sample] = -(slope[sample - 1] + slope[sample + 1]);
    return slope;
  };
  // On a parabola the slopes at both ends average to that of the chord.
  const auto mirrored = [&](const Weights& slope) {
    Weights other;
    for (std::size_t i = 0; i < kAround; ++i) other[i] = 2 * chord[i] - slope[i];
    return other;
  };
  Weights first = isThere[0] ? slopeAt(1) : chord;
  Weights second = isThere[3] ? slopeAt(2) : chord;
  if (!isThere[0] && isThere[3]) first = mirrored(second);
  if (isThere[0] && !isThere[3]) second = mirrored(first);

  const double s = (time - times[1]) / step;
  const double ofSecond = s * s * (3 - 2 * s);
  Weights weights = {0, 1 - ofSecond, ofSecond, 0};
  for (std::size_t i = 0; i < kAround; ++i) {
    weights[i] += step * s * (1 - s) * ((1 - s) * first[i] - s * second[i]);
  }
  return weights;
}

// The last few samples that were read, so that neighbouring frames read each once.
class SampleWindow {
 public:
  SampleWindow(Source& source, const ChannelSummary& channel)
      : source_(source), channel_(channel) {}

  /// Valid until as many others as a frame needs have been fetched.
  Array Fetch(const Moment& sample) {
    const auto same = std::ranges::find(kept_, sample.sample, &Kept::sample);
    Kept& kept = same != kept_.end() ? *same : *std::ranges::min_element(kept_, {}, &Kept::used);
    if (kept.sample != sample.sample) {
      kept.sample.reset();
      kept.array = source_.FetchInto(channel_, sample, &kept.room);
      kept.sample = sample.sample;
    }
    kept.used = ++fetches_;
    return kept.array;
  }

 private:
  struct Kept {
    std::optional<unsigned int> sample;
    std::uint64_t used = 0;  // by which fetch
    Room room;
    Array array;
  };

  Source& source_;
  const ChannelSummary& channel_;
  std::array<Kept, kAround> kept_;
  std::uint64_t fetches_ = 0;
};

// Frames of the source are `stepTop / stepBottom` apart.
struct FrameStep {
  FrameStep(const kelsdk::KelFrameRate& source, const kelsdk::KelFrameRate& taken) {
    if (!taken.IsValid()) return;
    top = double(source.numerator) * taken.denominator;
    bottom = double(source.denominator) * taken.numerator;
  }
  double At(double number) const { return number * top / bottom; }
  double NumberOf(double frame) const { return frame * bottom / top; }

  double top = 1;
  double bottom = 1;
};

class FrameTrack : public Track {
 public:
  FrameTrack(Source& source, const ChannelSummary& channel, const TrackOptions& options)
      : Track(source, channel),
        samples_(source.MomentsOf(channel)),
        window_(source, channel),
        method_(IsInteger(channel.value) ? EResample::eHold : options.resample),
        step_(source.summary().rate, options.resampleRate) {
    const kelsdk::KelFrameRate& rate = source.summary().rate;
    source.summary().ExpectRate();
    ticksPerFrame_ = kTicksPerSecond / rate.PerSecond();
    if (samples_.count() == 0) return;
    const double one = *samples_.At(0).frame;
    const double other = *samples_.At(samples_.count() - 1).frame;
    const double from = std::max(std::min(one, other), options.range.from.value_or(-HUGE_VAL));
    const double to = std::min(std::max(one, other), options.range.to.value_or(HUGE_VAL));
    first_ = std::ceil(step_.NumberOf(from - samples_.tolerance()));
    const double last = std::floor(step_.NumberOf(to + samples_.tolerance()));
    constexpr double kMostFrames = 1e15;
    if (!(std::fabs(first_) < kMostFrames && std::fabs(last) < kMostFrames)) {
      throw Failed(source.summary().file, "the times lie too far out to be counted in frames");
    }
    if (last >= first_) count_ = static_cast<std::uint64_t>(last - first_) + 1;
  }

  std::uint64_t Count() const override { return count_; }
  bool Descends() const override { return false; }
  double DeclaredFrames() const override { return step_.At(1); }

  Moment At(std::uint64_t index) override {
    Moment moment;
    moment.frame = step_.At(first_ + double(index));
    moment.ticks = *moment.frame * ticksPerFrame_;
    moment.seconds = moment.ticks / kTicksPerSecond;
    return moment;
  }

  Array Fetch(const Moment& moment) override {
    const Moment before = SampleBefore(moment);
    const double distance = *moment.frame - *before.frame;
    const bool between = std::fabs(distance) > samples_.tolerance() &&
                         *before.sample + std::uint64_t{1} < samples_.count();
    if (!between || method_ == EResample::eHold) return window_.Fetch(before);
    return Between(before, moment);
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

  Array Between(const Moment& before, const Moment& moment) {
    std::array<Array, kAround> arrays;
    Weights times = {};
    std::array<bool, kAround> isThere = {};
    const auto take = [&](std::size_t place, const Moment& sample) {
      arrays[place] = window_.Fetch(sample);
      times[place] = *sample.frame;
      isThere[place] = arrays[place].elements == arrays[1].elements;
    };
    const std::uint64_t sample = *before.sample;
    take(1, before);
    take(2, samples_.At(sample + 1));
    if (!isThere[2]) return arrays[1];
    const bool isCubic = method_ == EResample::eCubic;
    if (isCubic && sample > 0) take(0, samples_.At(sample - 1));
    if (isCubic && sample + 2 < samples_.count()) take(3, samples_.At(sample + 2));
    const Weights weights = CubicWeights(times, isThere, *moment.frame);
    const double share = (*moment.frame - times[1]) / (times[2] - times[1]);

    Array blended = arrays[1];
    void* const values = room_.For(blended);
    blended.values = values;
    const bool isLine = !isThere[0] && !isThere[3];
    const auto blend = [&](auto* typed) {
      return isLine ? BlendTwo(typed, arrays, share) : BlendFour(typed, arrays, isThere, weights);
    };
    const bool fits = blended.type == ValueType::eFloat32 ? blend(static_cast<float*>(values))
                                                          : blend(static_cast<double*>(values));
    if (!fits) FailAt(source_.summary(), channel_, moment, "the curve leaves the range of floats");
    return blended;
  }

  template <typename Value>
  static bool BlendTwo(Value* values, const std::array<Array, kAround>& arrays, double share) {
    const auto* const before = static_cast<const Value*>(arrays[1].values);
    const auto* const after = static_cast<const Value*>(arrays[2].values);
    for (std::size_t i = 0; i < arrays[1].Count(); ++i) {
      values[i] = static_cast<Value>(double(before[i]) * (1 - share) + double(after[i]) * share);
    }
    return true;
  }

  // False where finite values came to one that the type does not hold.
  template <typename Value>
  static bool BlendFour(Value* values, const std::array<Array, kAround>& arrays,
                        const std::array<bool, kAround>& isThere, const Weights& weights) {
    const auto of = [&](std::size_t k) {
      return static_cast<const Value*>(arrays[isThere[k] ? k : 1].values);
    };
    const auto [first, before, after, last] = std::array{of(0), of(1), of(2), of(3)};
    const auto [a, b, c, d] = weights;
    const std::size_t count = arrays[1].Count();
    for (std::size_t i = 0; i < count; ++i) {
      values[i] = NearestValue<Value>(a * double(first[i]) + b * double(before[i]) +
                                      c * double(after[i]) + d * double(last[i]));
    }
    if (!AnyIsNotFinite(values, count)) return true;
    for (std::size_t i = 0; i < count; ++i) {
      const bool wasFinite = std::isfinite(first[i]) && std::isfinite(before[i]) &&
                             std::isfinite(after[i]) && std::isfinite(last[i]);
      if (wasFinite && !std::isfinite(values[i])) return false;
    }
    return true;
  }

  Moments samples_;
  SampleWindow window_;
  EResample method_;
  FrameStep step_;
  double ticksPerFrame_ = 0;
  double first_ = 0;  // number of the first frame, at the resampling rate
  std::uint64_t count_ = 0;
  Room room_;
};

}  // namespace

std::unique_ptr<Track> MakeFrameTrack(Source& source, const ChannelSummary& channel,
                                      const TrackOptions& options) {
  return std::make_unique<FrameTrack>(source, channel, options);
}

}  // namespace kelcache
