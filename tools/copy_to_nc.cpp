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
  TickMap(const kelsdk::KelFrameRate& rate, const CopyOptions& options)
      : file_(options.target),
        rate_(options.targetRate.IsValid() ? options.targetRate : rate),
        map_(options.map),
        ownTimes_(!options.targetRate.IsValid() && options.map.IsIdentity() &&
                  !options.snapFrames) {
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

// Names are each its own; a PC2 cache's channel has none and is named after the copy.
std::vector<CopiedChannel> ChannelsOf(Source& source, const CopyOptions& options) {
  std::vector<CopiedChannel> channels;
  std::set<std::string> taken;
  for (const ChannelSummary* channel : source.summary().Choose(options.channels)) {
    std::string name =
        source.summary().pc2 ? NCName(options.target).baseName : channel->name.value_or("");
    if (name.empty()) name = "channel" + std::to_string(channel->index);
    const std::string plain = name;
    for (int i = 2; !taken.insert(name).second; ++i) name = plain + std::to_string(i);
    channels.push_back({MakeTrack(source, *channel, options.take), name});
  }
  return channels;
}

// The first of all samples that are taken.
std::optional<Moment> BeginOf(const std::vector<CopiedChannel>& channels) {
  std::optional<Moment> begin;
  for (const auto& [track, name] : channels) {
    if (track->Count() == 0) continue;
    const Moment first = track->At(0);
    if (!begin || first.ticks < begin->ticks) begin = first;
  }
  return begin;
}

// A channel that has no sample when the copy begins held what an earlier one says: that is taken
// along where it lasts, as integers do between samples. Whatever is left out is told.
void HoldWhatLasts(const CopyOptions& options, std::vector<CopiedChannel>* channels, Watch& watch) {
  const auto begin = BeginOf(*channels);
  if (!begin) return;
  for (CopiedChannel& channel : *channels) {
    const Track& track = *channel.track;
    const bool isEmpty = track.Count() == 0;
    if (track.channel().samples == 0) continue;
    if (!isEmpty && channel.track->At(0).ticks < begin->ticks + 1) continue;
    auto held = MakeHeldTrack(track.source(), track.channel(), options.take, *begin);
    const std::string what =
        options.target + ": channel " + channel.name +
        (isEmpty ? " has no sample in the frames asked for"
                 : " has its first sample at " + MomentText(channel.track->At(0)));
    if (held == nullptr) {
      if (isEmpty) watch.Note(what + " and stays empty");
    } else if (isEmpty || IsInteger(track.channel().value)) {
      watch.Note(what + "; the last one before is put at " + MomentText(*begin));
      channel.track = std::move(held);
    } else {
      watch.Note(what + "; the one before, outside the frames asked for, is left out");
    }
  }
}

// Integers wider than those of the format: as integers where all are small enough, else as doubles
// where those have them all.
ElementType TypeOfWideIntegers(Track& track, Watch& watch) {
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
        throw Failed(track.source().summary().file,
                     "channel " + track.channel().name.value_or("") + ", " + MomentText(moment) +
                         ": " + problem + " is neither a 32-bit integer nor exact as a double");
      }
    }
    const auto run = track.RunAt(moment);
    i += run ? (std::uint64_t{run->last} - *moment.sample) / track.Stride() + 1 : 1;
  }
  return type;
}

std::vector<SinkChannel> DescribeChannels(const std::vector<CopiedChannel>& channels,
                                          const CopyOptions& options, const TickMap& ticks,
                                          Watch& watch) {
  std::vector<SinkChannel> described;
  for (const auto& [track, name] : channels) {
    const ChannelSummary& channel = track->channel();
    const bool isPC2 = track->source().summary().pc2.has_value();
    SinkChannel sink;
    sink.name = name;
    sink.interpretation = channel.interpretation.value_or(isPC2 ? "Points" : "");
    sink.type = channel.elementType ? *channel.elementType : TypeOfWideIntegers(*track, watch);
    sink.interval = ticks.IntervalOf(track->DeclaredFrames());
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
    const auto [found, isNew] = places_.try_emplace(
        {run.archive, run.identity, run.variant, channel.value, channel.components}, place);
    if (isNew) return {};
    return found->second;
  }

 private:
  using Key = std::tuple<const void*, unsigned long long, unsigned int, ValueType, unsigned int>;
  std::map<Key, Place> places_;
};

// Takes the samples of all channels in the order of their times.
class Copier {
 public:
  Copier(const std::vector<CopiedChannel>& tracks, const TickMap& ticks,
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
    Track& track = *tracks_[channel].track;
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
    Track& track = *tracks_[step.channel].track;
    if (const auto run = track.RunAt(step.moment)) {
      const auto place = repeats_.FindOrNote(*run, track, {step.channel, step.ticks});
      if (place && CanRepeat(channels_[place->channel], channels_[step.channel]) &&
          sink.Repeat(step.channel, step.ticks, place->channel, place->ticks)) {
        return;
      }
    }
    sink.Write(step.channel, step.ticks, track.Fetch(step.moment));
  }

  const std::vector<CopiedChannel>& tracks_;
  const TickMap& ticks_;
  const std::vector<SinkChannel>& channels_;
  const std::string& target_;
  std::priority_queue<Step> next_;
  Repeats repeats_;
  Watch& watch_;
};

}  // namespace

std::uint64_t CopyChannelsToNC(const std::vector<CopiedChannel>& channels,
                               const kelsdk::KelFrameRate& rate, const CopyOptions& options,
                               Watch& watch) {
  const TickMap ticks(rate, options);
  std::uint64_t total = 0;
  for (const auto& [track, name] : channels) {
    const std::uint64_t count = track->Count();
    total += count;
    // Ends that no cache can hold are refused before anything is made.
    if (count == 0) continue;
    ticks.TickOf(track->At(0));
    ticks.TickOf(track->At(count - 1));
  }
  if (total == 0) {
    const auto& file =
        channels.empty() ? options.target : channels.front().track->source().summary().file;
    throw Failed(file, "no sample lies in the frames asked for");
  }
  const std::vector<SinkChannel> described = DescribeChannels(channels, options, ticks, watch);
  const NCLayout layout{options.perFrame, options.compact, ticks.ticksPerFrame(), ticks.exactRate(),
                        options.compactEncoding};
  const auto sink = MakeNCSink(options.target, layout, described);
  watch.Begin(total, options.target);
  Copier(channels, ticks, described, options, watch).Run(*sink);
  watch.End();
  sink->Finish();
  for (std::size_t i = 0; i < described.size(); ++i) {
    const std::string& name = described[i].name;
    NoteHowFarValuesMove(options.target, name, described[i].maximumError, watch);
    const double before = channels[i].track->channel().maximumError;
    if (before == 0 || !options.compact || options.maxError) continue;
    NoteThatBoundIsGone(options.target, name, before, watch);
  }
  return total;
}

std::uint64_t CopyToNC(Source& source, const CopyOptions& options, Watch& watch) {
  if (!options.targetRate.IsValid()) source.summary().ExpectRate();
  auto channels = ChannelsOf(source, options);
  HoldWhatLasts(options, &channels, watch);
  return CopyChannelsToNC(channels, source.summary().rate, options, watch);
}

}  // namespace kelcache
