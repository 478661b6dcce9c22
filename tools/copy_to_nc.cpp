#include <algorithm>
#include <climits>
#include <cmath>
#include <map>
#include <queue>
#include <set>
#include <tuple>

#include "tools/copy.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

// Where frames of the source lie in the copy.
class TickMap {
 public:
  TickMap(const Source& source, const CopyOptions& options)
      : file_(options.target),
        rate_(options.targetRate.IsValid() ? options.targetRate : source.summary().rate),
        map_(options.map),
        ownTimes_(!options.targetRate.IsValid() && options.map.IsIdentity() &&
                  !options.snapFrames) {
    if (!rate_.IsValid()) source.summary().ExpectRate();
    const TickRate ticks(rate_);
    ticksPerFrame_ = ticks.ticksPerFrame;
    exactTicks_ = options.snapFrames ? ticks.ticksPerFrame : ticks.exactTicks;
    if (!options.snapFrames) exactRate_ = ticks.exactRate;
  }

  int ticksPerFrame() const { return ticksPerFrame_; }
  const kelsdk::KelFrameRate& exactRate() const { return exactRate_; }

  // Samples keep their own time unless an option moves frames.
  int TickOf(const Moment& moment) const {
    const double frame = moment.frame ? *moment.frame : moment.seconds * rate_.PerSecond();
    const double ticks = std::round(ownTimes_ ? moment.ticks : map_.At(frame) * exactTicks_);
    if (ticks >= INT_MIN && ticks <= INT_MAX) return static_cast<int>(ticks);
    throw Failed(file_, MomentText(moment) + " lies outside the range of ticks");
  }

  // 0 for none.
  unsigned int IntervalOf(double frames) const {
    const double ticks = std::round(frames * map_.scale * exactTicks_);
    return ticks >= 1 && ticks <= double(UINT_MAX) ? static_cast<unsigned int>(ticks) : 0;
  }

 private:
  std::string file_;
  kelsdk::KelFrameRate rate_;
  FrameMap map_;
  bool ownTimes_;
  int ticksPerFrame_ = 0;
  kelsdk::KelFrameRate exactRate_ = {0, 0};
  double exactTicks_ = 0;
};

std::vector<std::unique_ptr<Track>> TracksOf(Source& source, const CopyOptions& options) {
  std::vector<std::unique_ptr<Track>> tracks;
  const auto add = [&](const ChannelSummary& channel) {
    tracks.push_back(MakeTrack(source, channel, options.range, options.resample));
  };
  if (!options.channel.empty()) {
    add(source.summary().FindChannel(options.channel));
  } else {
    for (const ChannelSummary& channel : source.summary().channels) add(channel);
  }
  return tracks;
}

// Integers wider than those of the format: as integers where all are small enough, else as doubles
// where those have them all.
ElementType TypeOfWideIntegers(const Source& source, Track& track, Watch& watch) {
  ElementConverter converter;
  auto type = kelsdk::zuCacheData::eNCInt32Array;
  for (std::uint64_t i = 0; i < track.Count();) {
    watch.ThrowIfInterrupted();
    const Moment moment = track.At(i);
    const Array array = track.Fetch(moment);
    std::string problem;
    if (converter.Convert(array, type, &problem) == nullptr) {
      type = kelsdk::zuCacheData::eNCDoubleArray;
      if (converter.Convert(array, type, &problem) == nullptr) {
        throw Failed(source.summary().file,
                     "channel " + track.channel().name.value_or("") + ", " + MomentText(moment) +
                         ": " + problem + " is neither a 32-bit integer nor exact as a double");
      }
    }
    const auto run = track.RunAt(moment);
    i += run ? std::uint64_t{run->last} - *moment.sample + 1 : 1;
  }
  return type;
}

// The declared interval of a channel in frames, 0 for none.
double IntervalFrames(const Source& source, const ChannelSummary& channel) {
  const kelsdk::KelFrameRate& rate = source.summary().rate;
  return rate.IsValid() ? channel.declaredTicks * rate.PerSecond() / kTicksPerSecond : 0;
}

// Names are each its own; a PC2 cache's channel has none and is named after the copy.
std::vector<SinkChannel> DescribeChannels(Source& source, const CopyOptions& options,
                                          const std::vector<std::unique_ptr<Track>>& tracks,
                                          const TickMap& ticks, Watch& watch) {
  std::vector<SinkChannel> described;
  std::set<std::string> taken;
  const bool isPC2 = source.summary().pc2.has_value();
  for (const auto& track : tracks) {
    const ChannelSummary& channel = track->channel();
    SinkChannel sink;
    sink.name = isPC2 ? NCName(options.target).baseName : channel.name.value_or("");
    if (sink.name.empty()) sink.name = "channel" + std::to_string(channel.index);
    const std::string plain = sink.name;
    for (int i = 2; !taken.insert(sink.name).second; ++i) sink.name = plain + std::to_string(i);
    sink.interpretation = channel.interpretation.value_or(isPC2 ? "Points" : "");
    sink.type =
        channel.elementType ? *channel.elementType : TypeOfWideIntegers(source, *track, watch);
    const bool byFrame = options.resample != EResample::eNone;
    sink.interval = ticks.IntervalOf(byFrame ? 1 : IntervalFrames(source, channel));
    if (options.maxError) sink.maximumError = options.maxError->Of(*track, watch);
    described.push_back(sink);
  }
  return described;
}

// Arrays that the archive keeps once, and where the copy has them.
class Repeats {
 public:
  struct Place {
    unsigned int channel = 0;
    int ticks = 0;
  };

  // The place of an equal array; otherwise notes this one for those to come.
  std::optional<Place> FindOrNote(const SampleRun& run, const Track& track, const Place& place) {
    if (run.identity == 0) return {};
    const ChannelSummary& channel = track.channel();
    const auto [found, isNew] =
        places_.try_emplace({run.identity, channel.value, channel.components}, place);
    if (isNew) return {};
    return found->second;
  }

 private:
  std::map<std::tuple<unsigned long long, ValueType, unsigned int>, Place> places_;
};

// Takes the samples of all channels in the order of their times.
class Copier {
 public:
  Copier(const std::vector<std::unique_ptr<Track>>& tracks, const TickMap& ticks,
         const std::vector<SinkChannel>& channels, const CopyOptions& options, Watch& watch)
      : tracks_(tracks),
        ticks_(ticks),
        channels_(channels),
        target_(options.target),
        watch_(watch) {}

  void Run(Sink& sink) {
    for (unsigned int c = 0; c < tracks_.size(); ++c) Queue(c, 0);
    for (std::uint64_t done = 0; !next_.empty(); watch_.Show(++done)) {
      watch_.ThrowIfInterrupted();
      const Step step = next_.top();
      next_.pop();
      Take(step, sink);
      Queue(step.channel, step.index + 1);
      CheckNext(step);
    }
  }

 private:
  struct Step {
    int ticks = 0;
    unsigned int channel = 0;
    std::uint64_t index = 0;
    Moment moment;
    bool operator<(const Step& other) const {  // the queue's top is its greatest
      return std::tie(ticks, channel) > std::tie(other.ticks, other.channel);
    }
  };

  void Queue(unsigned int channel, std::uint64_t index) {
    Track& track = *tracks_[channel];
    const std::uint64_t count = track.Count();
    if (index == count) return;
    const Moment moment = track.At(track.Descends() ? count - 1 - index : index);
    next_.push({ticks_.TickOf(moment), channel, index, moment});
  }

  // Of one channel and tick a cache holds one sample: the other would be lost.
  void CheckNext(const Step& step) {
    if (next_.empty() || next_.top().channel != step.channel || next_.top().ticks != step.ticks) {
      return;
    }
    throw Failed(target_,
                 "channel " + channels_[step.channel].name + ": " + MomentText(step.moment) +
                     " and " + MomentText(next_.top().moment) +
                     " fall on one tick, 1/6000 s, and an NC cache holds one sample there");
  }

  static bool CanRepeat(const SinkChannel& from, const SinkChannel& to) {
    return from.type == to.type && from.maximumError <= to.maximumError;
  }

  void Take(const Step& step, Sink& sink) {
    Track& track = *tracks_[step.channel];
    if (const auto run = track.RunAt(step.moment)) {
      const auto place = repeats_.FindOrNote(*run, track, {step.channel, step.ticks});
      if (place && CanRepeat(channels_[place->channel], channels_[step.channel]) &&
          sink.Repeat(step.channel, step.ticks, place->channel, place->ticks)) {
        return;
      }
    }
    sink.Write(step.channel, step.ticks, track.Fetch(step.moment));
  }

  const std::vector<std::unique_ptr<Track>>& tracks_;
  const TickMap& ticks_;
  const std::vector<SinkChannel>& channels_;
  const std::string& target_;
  std::priority_queue<Step> next_;
  Repeats repeats_;
  Watch& watch_;
};

}  // namespace

std::uint64_t CopyToNC(Source& source, const CopyOptions& options, Watch& watch) {
  const TickMap ticks(source, options);
  const auto tracks = TracksOf(source, options);
  std::uint64_t total = 0;
  for (const auto& track : tracks) {
    total += track->Count();
    // Ends that no cache can hold are refused before anything is made.
    if (track->Count() == 0) continue;
    ticks.TickOf(track->At(0));
    ticks.TickOf(track->At(track->Count() - 1));
  }
  if (total == 0) throw Failed(source.summary().file, "no sample lies in the frames asked for");
  const std::vector<SinkChannel> channels = DescribeChannels(source, options, tracks, ticks, watch);
  const NCLayout layout{options.perFrame, options.compact, ticks.ticksPerFrame(), ticks.exactRate(),
                        options.compactEncoding};
  const auto sink = MakeNCSink(options.target, layout, channels);
  watch.Begin(total, options.target);
  Copier(tracks, ticks, channels, options, watch).Run(*sink);
  watch.End();
  sink->Finish();
  for (const SinkChannel& channel : channels) {
    NoteHowFarValuesMove(options.target, channel.name, channel.maximumError, watch);
  }
  return total;
}

}  // namespace kelcache
