#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>

#include "host/KelNearestFloat.h"
#include "tools/copy.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

ToolError NotEven(const Source& source) {
  return Failed(
      source.summary().file,
      "the samples are not evenly spaced, as those of a PC2 cache are; --resample hold or "
      "--resample linear takes one per frame");
}

// The line from the first sample to the last, when all lie within a tick of it.
Spacing MeasuredSpacing(const Source& source, Track& track) {
  const std::uint64_t count = track.Count();
  const double perTick = source.summary().rate.PerSecond() / kTicksPerSecond;
  const double start = *track.At(0).frame;
  if (count == 1) {
    const double seconds = track.channel().interval.value_or(0);
    const double frames = seconds > 0 ? seconds * source.summary().rate.PerSecond() : 1;
    return {start, frames * track.Stride()};
  }
  const double interval = (*track.At(count - 1).frame - start) / double(count - 1);
  if (track.channel().sampling == "uniform") return {start, interval};
  for (std::uint64_t i = 0; i < count; ++i) {
    const double place = start + double(i) * interval;
    if (!(std::fabs(*track.At(i).frame - place) <= perTick)) throw NotEven(source);
  }
  return {start, interval};
}

Spacing SpacingOf(Source& source, Track& track, const CopyOptions& options) {
  const CacheSummary& summary = source.summary();
  const Moment first = track.At(0);
  if (options.take.resample != EResample::eNone) return {*first.frame, track.DeclaredFrames()};
  summary.ExpectRate();
  const FormatRow& row = RowOf(summary.format);
  if (row.spacing == nullptr) return MeasuredSpacing(source, track);
  auto spacing = row.spacing(source.cache(), summary, track.channel(), first);
  if (!spacing) throw NotEven(source);
  spacing->interval *= track.Stride();
  return *spacing;
}

// Makes all samples as long as the longest.
class Padder {
 public:
  Padder(EPad pad, unsigned int points) : pad_(pad), points_(points) {}

  Array Fill(const Array& array) {
    if (array.elements >= points_) return array;
    const float* const values = AsFloats(array, &floats_);
    padded_.resize(std::size_t{points_} * kCoordinates);
    std::copy_n(values, array.Count(), padded_.begin());
    for (std::size_t i = array.Count(); i < padded_.size(); ++i) {
      padded_[i] = FillerAt(i, array.elements == 0);
    }
    return {padded_.data(), ValueType::eFloat32, points_, kCoordinates};
  }

 private:
  static constexpr unsigned int kCoordinates = 3;

  float FillerAt(std::size_t value, bool isEmpty) const {
    if (pad_ == EPad::eNan) return std::numeric_limits<float>::quiet_NaN();
    return pad_ == EPad::eLast && !isEmpty ? padded_[value - kCoordinates] : 0;
  }

  EPad pad_;
  unsigned int points_;
  std::vector<float> floats_;
  std::vector<float> padded_;
};

// With padding the most points of any sample, else those of the first, which all must have.
unsigned int PointCount(Track& track, EPad pad, Watch& watch) {
  unsigned int most = track.ElementsAt(track.At(0));
  for (std::uint64_t i = 1; pad != EPad::eNone && i < track.Count(); ++i) {
    watch.ThrowIfInterrupted();
    most = std::max(most, track.ElementsAt(track.At(i)));
  }
  return most;
}

void ExpectPoints(const Source& source, const ChannelSummary& channel) {
  if (channel.components == 3 && !IsInteger(channel.value)) return;
  throw Failed(source.summary().file,
               "channel " + channel.name.value_or(std::to_string(channel.index)) +
                   " holds no points: " + std::to_string(channel.components) +
                   (IsInteger(channel.value) ? " integers" : " values") + " an element");
}

}  // namespace

std::uint64_t CopyToPC2(Source& source, const CopyOptions& options, Watch& watch) {
  const ChannelSummary& channel = options.channels.IsAll()
                                      ? source.summary().FindChannel("0")
                                      : *source.summary().Choose(options.channels).front();
  ExpectPoints(source, channel);
  const auto track = MakeTrack(source, channel, options.take);
  if (track->Count() == 0) {
    throw Failed(source.summary().file, "no sample lies in the frames asked for");
  }
  if (track->Count() > INT_MAX) {
    throw Failed(options.target, "a PC2 cache holds at most 2147483647 samples");
  }
  const Spacing spacing = SpacingOf(source, *track, options);
  const unsigned int points = PointCount(*track, options.pad, watch);
  const auto sink = MakePC2Sink(options.target, points, static_cast<unsigned int>(track->Count()),
                                kelsdk::KelNearestFloat(options.map.At(spacing.start)),
                                kelsdk::KelNearestFloat(spacing.interval * options.map.scale));
  Padder padder(options.pad, points);
  watch.Begin(track->Count(), options.target);
  for (std::uint64_t i = 0; i < track->Count(); ++i) {
    watch.ThrowIfInterrupted();
    const Moment moment = track->At(i);
    Array array = track->Fetch(moment);
    if (options.pad != EPad::eNone) array = padder.Fill(array);
    if (array.elements != points) {
      throw Failed(source.summary().file,
                   MomentText(moment) + ": " + std::to_string(array.elements) + " points after " +
                       std::to_string(points) +
                       "; a PC2 cache has one point count: --pad nan, zero or last fills the "
                       "shorter samples");
    }
    sink->Write(0, 0, array);
    watch.Show(i + 1);
  }
  watch.End();
  sink->Finish();
  NoteWhatPC2Rounds(channel, options.target, watch);
  return track->Count();
}

}  // namespace kelcache
