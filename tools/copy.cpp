#include "tools/copy.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <set>

#include "tools/interrupt.h"
#include "tools/output.h"
#include "tools/terminal.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;

constexpr double kTicksPerSecond = 6000;

// One sample of one channel on its way into the copy.
struct Step {
  int ticks = 0;             // in the copy
  unsigned int channel = 0;  // in the copy
  unsigned int moment = 0;   // of the source's channel
};

struct CopiedChannel {
  const ChannelSummary* summary;
  Moments moments;
};

// The frame of a moment in the copy. A cache without a frame rate counts frames of the copy's.
double FrameInCopy(const Moment& moment, const CopyOptions& options, double rate) {
  return options.map.At(moment.frame ? *moment.frame : moment.seconds * rate);
}

int TicksOfFrame(double frame, int ticksPerFrame) {
  const double ticks = std::round(frame * ticksPerFrame);
  if (!(ticks >= INT_MIN && ticks <= INT_MAX)) {
    throw ToolError(eFailed, "frame " + RoundedText(frame) + " lies outside the range of ticks");
  }
  return static_cast<int>(ticks);
}

std::vector<CopiedChannel> ChannelsToCopy(Source& source, const CopyOptions& options) {
  std::vector<CopiedChannel> channels;
  const auto add = [&](const ChannelSummary& channel) {
    channels.push_back({&channel, source.MomentsOf(channel)});
  };
  const bool first = options.targetFormat == KelCache::ePC2Format;
  if (!options.channel.empty() || first) {
    add(source.FindChannel(options.channel.empty() ? "0" : options.channel));
  } else {
    for (const ChannelSummary& channel : source.summary().channels) add(channel);
  }
  return channels;
}

double RateOfCopy(const Source& source, const CopyOptions& options) {
  if (options.targetRate > 0) return options.targetRate;
  if (source.summary().frameRate) return *source.summary().frameRate;
  throw ToolError(eUsage, source.summary().file + ": has no frame rate; give --rate");
}

// NC channels need names, each its own; a PC2 cache's channel is named after the file.
std::vector<SinkChannel> NameChannels(Source& source, const std::vector<CopiedChannel>& channels) {
  std::vector<SinkChannel> named;
  std::set<std::string> taken;
  for (const CopiedChannel& channel : channels) {
    SinkChannel sink;
    sink.name = channel.summary->name.value_or(NCName(source.summary().file).baseName);
    if (sink.name.empty()) sink.name = "channel" + std::to_string(channel.summary->index);
    const std::string plain = sink.name;
    for (int i = 2; !taken.insert(sink.name).second; ++i) sink.name = plain + std::to_string(i);
    sink.interpretation = channel.summary->interpretation.value_or("Points");
    sink.type = source.TypeOf(*channel.summary);
    named.push_back(sink);
  }
  return named;
}

class Copier {
 public:
  Copier(Source& source, std::vector<CopiedChannel>& channels, bool progress, size_t total)
      : source_(source), channels_(channels), progress_(total, progress, source.summary().file) {}

  void Take(const Step& step, Sink& sink) {
    ThrowIfInterrupted();
    CopiedChannel& channel = channels_[step.channel];
    sink.Write(step.channel, step.ticks,
               source_.Fetch(*channel.summary, channel.moments.At(step.moment)));
    progress_.Show(++done_);
  }

 private:
  Source& source_;
  std::vector<CopiedChannel>& channels_;
  Progress progress_;
  std::uint64_t done_ = 0;
};

std::vector<Step> StepsOf(std::vector<CopiedChannel>& channels, const CopyOptions& options,
                          double rate, int ticksPerFrame) {
  std::vector<Step> steps;
  for (unsigned int c = 0; c < channels.size(); ++c) {
    for (unsigned int i = 0; i < channels[c].moments.count(); ++i) {
      const Moment moment = channels[c].moments.At(i);
      if (!options.range.Holds(moment)) continue;
      const double frame = FrameInCopy(moment, options, rate);
      steps.push_back({ticksPerFrame > 0 ? TicksOfFrame(frame, ticksPerFrame) : 0, c, i});
    }
  }
  if (steps.empty()) throw ToolError(eFailed, "no sample lies in the frames asked for");
  return steps;
}

void CopyToNC(Source& source, std::vector<CopiedChannel>& channels, const CopyOptions& options,
              double rate, std::vector<Step>* steps) {
  const int ticksPerFrame = TicksPerFrameOf(rate);
  *steps = StepsOf(channels, options, rate, ticksPerFrame);
  std::stable_sort(steps->begin(), steps->end(), [](const Step& a, const Step& b) {
    return a.ticks != b.ticks ? a.ticks < b.ticks : a.channel < b.channel;
  });
  const auto sink = MakeNCSink(options.target, {options.perFrame, options.compact, ticksPerFrame},
                               NameChannels(source, channels));
  Copier copier(source, channels, options.progress, steps->size());
  for (const Step& step : *steps) copier.Take(step, *sink);
  sink->Finish();
}

// A PC2 cache has one interval: that of the samples when they are even, else one frame.
void CopyToPC2(Source& source, std::vector<CopiedChannel>& channels, const CopyOptions& options,
               double rate, std::vector<Step>* steps) {
  const ChannelSummary& channel = *channels[0].summary;
  if (channel.components != 3) {
    throw Failed(source.summary().file,
                 "channel " + std::to_string(channel.index) + " holds no points: " +
                     std::to_string(channel.components) + " values an element");
  }
  *steps = StepsOf(channels, options, rate, 0);
  const Moment first = channels[0].moments.At(steps->front().moment);
  const double start = FrameInCopy(first, options, rate);
  double interval = options.map.scale;
  if (steps->size() > 1) {
    const Moment last = channels[0].moments.At(steps->back().moment);
    interval = (FrameInCopy(last, options, rate) - start) / double(steps->size() - 1);
    for (size_t i = 0; i < steps->size(); ++i) {
      const double frame = FrameInCopy(channels[0].moments.At((*steps)[i].moment), options, rate);
      if (std::fabs(frame - (start + double(i) * interval)) > 0.01 * std::fabs(interval)) {
        throw Failed(source.summary().file,
                     "the samples are not evenly spaced, as those of a PC2 cache are; --rate takes "
                     "one per frame");
      }
    }
  }
  if (source.summary().pc2) interval = source.summary().pc2->sampleRate * options.map.scale;
  unsigned int length = 0;
  source.FetchFloats(channel, first, &length);
  const auto sink =
      MakePC2Sink(options.target, length / 3, static_cast<unsigned int>(steps->size()),
                  static_cast<float>(start), static_cast<float>(interval));
  Progress progress(steps->size(), options.progress, source.summary().file);
  for (size_t i = 0; i < steps->size(); ++i) {
    ThrowIfInterrupted();
    const float* values =
        source.FetchFloats(channel, channels[0].moments.At((*steps)[i].moment), &length);
    sink->Write(0, 0, {values, length / 3});
    progress.Show(i + 1);
  }
  sink->Finish();
}

}  // namespace

void PrintCopied(const std::string& file, unsigned int samples) {
  PrintLine(stdout, file + ": " + std::to_string(samples) + " samples written");
}

int TicksPerFrameOf(double framesPerSecond) {
  const double ticks = kTicksPerSecond / framesPerSecond;
  if (!(ticks >= 1 && ticks < double(INT_MAX) + 1)) {
    throw ToolError(eUsage, "Invalid sampling rate: " + RoundedText(framesPerSecond) +
                                " frames per second are not 1 to 2147483647 ticks a frame");
  }
  return static_cast<int>(ticks);
}

unsigned int Copy(Source& source, const CopyOptions& options) {
  CatchInterrupts();
  std::vector<CopiedChannel> channels = ChannelsToCopy(source, options);
  const double rate = RateOfCopy(source, options);
  std::vector<Step> steps;
  if (options.targetFormat == KelCache::ePC2Format) {
    CopyToPC2(source, channels, options, rate, &steps);
  } else {
    CopyToNC(source, channels, options, rate, &steps);
  }
  return static_cast<unsigned int>(steps.size());
}

}  // namespace kelcache
