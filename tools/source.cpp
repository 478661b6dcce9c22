#include "tools/source.h"

#include <algorithm>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

unsigned int IndexOf(const ChannelSummary& channel) {
  return static_cast<unsigned int>(channel.index);
}

}  // namespace

Source::Source(const std::string& file, Format format, const kelsdk::KelFrameRate& rate,
               bool everyFrame)
    : cache_(file, format), everyFrame_(everyFrame) {
  cache_.OpenForRead();
  summary_ = Summarise(cache_, rate);
}

Moments Source::MomentsOf(const ChannelSummary& channel) {
  return {cache_, summary_, channel, everyFrame_};
}

unsigned int Source::ElementsAt(const ChannelSummary& channel, const Moment& moment) {
  return RowOf(summary_.format).elementsAt(cache_, summary_, channel, moment);
}

Array Source::Fetch(const ChannelSummary& channel, const Moment& moment) {
  return FetchInto(channel, moment, &room_);
}

Array Source::FetchInto(const ChannelSummary& channel, const Moment& moment, Room* room) {
  return RowOf(summary_.format).fetch(cache_, summary_, channel, moment, room);
}

bool Source::FetchRun(unsigned int firstSample, unsigned int samples, void* values) {
  const FormatRow& row = RowOf(summary_.format);
  return row.fetchRun != nullptr && row.fetchRun(cache_, firstSample, samples, values);
}

const float* Source::FetchFloats(const ChannelSummary& channel, const Moment& moment,
                                 unsigned int* length) {
  float* values = nullptr;
  if (!cache_->Read(&values, *length, moment.time, IndexOf(channel))) {
    const bool noPoints = summary_.pc2 && summary_.pc2->points == 0;
    FailAt(summary_, channel, moment, noPoints ? "the cache has no points" : cache_.ReadProblem());
  }
  return values;
}

std::optional<SampleRun> Source::RunAt(const ChannelSummary& channel, const Moment& moment) {
  const FormatRow& row = RowOf(summary_.format);
  if (row.runOf == nullptr || !moment.sample) return {};
  SampleRun run = row.runOf(cache_, summary_, channel, moment);
  run.archive = this;
  return run;
}

bool NoteWhatIsMissing(const Source& source, const FrameRange& range, Watch& watch) {
  const CacheSummary& summary = source.summary();
  if (summary.problems != 0) {
    watch.Note(summary.file + ": " + summary.WhatIsMissing());
    return true;
  }
  if (!summary.pc2 || summary.complete || summary.pc2->points == 0) return false;
  const PC2Summary& pc2 = *summary.pc2;
  watch.Note(summary.file + ": cut short: " + summary.WhatIsMissing());
  const double firstMissing = pc2.startFrame + pc2.wholeSamples * pc2.sampleRate;
  const double lastMissing = pc2.startFrame + (pc2.samples - 1.0) * pc2.sampleRate;
  return !(range.to && std::min(firstMissing, lastMissing) > *range.to + kFrameTolerance) &&
         !(range.from && std::max(firstMissing, lastMissing) < *range.from - kFrameTolerance);
}

}  // namespace kelcache
