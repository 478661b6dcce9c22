#include "tools/source.h"

#include <algorithm>

#include "tools/output.h"
#include "tools/terminal.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;
using kelsdk::KelTime;

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

void Source::Fail(const ChannelSummary& channel, const Moment& moment,
                  const std::string& why) const {
  const bool several = summary_.channels.size() > 1;
  const std::string name = channel.name.value_or(std::to_string(channel.index));
  throw Failed(summary_.file,
               (several ? "channel " + name + ", " : "") + MomentText(moment) + ": " + why);
}

unsigned int Source::SampleAt(const ChannelSummary& channel, const Moment& moment) {
  if (moment.sample) return *moment.sample;
  unsigned int sample = 0;
  AlembicInterface& archive = cache_.Alembic();
  if (!archive.GetSampleAtTime(IndexOf(channel), moment.time, sample)) {
    Fail(channel, moment, archive.GetErrorString());
  }
  return sample;
}

unsigned int Source::ElementsAt(const ChannelSummary& channel, const Moment& moment) {
  if (summary_.pc2) return summary_.pc2->points;
  unsigned int elements = 0;
  if (summary_.format == KelCache::eNCFormat) {
    if (!cache_->GetChannelPointCount(channel.index, moment.time, elements, nullptr)) {
      Fail(channel, moment, cache_.ReadProblem());
    }
    return elements;
  }
  AlembicInterface& archive = cache_.Alembic();
  if (!archive.GetSampleLength(IndexOf(channel), SampleAt(channel, moment), elements)) {
    Fail(channel, moment, archive.GetErrorString());
  }
  return elements;
}

void* Source::RoomFor(const Array& array) {
  const std::size_t bytes = array.Count() * SizeOf(array.type);
  const std::size_t doubles = std::max<std::size_t>(bytes / sizeof(double) + 1, room_.size());
  room_.resize(doubles);
  return room_.data();
}

const float* Source::FetchFloats(const ChannelSummary& channel, const Moment& moment,
                                 unsigned int* length) {
  float* values = nullptr;
  if (!cache_->Read(&values, *length, moment.time, IndexOf(channel))) {
    Fail(channel, moment,
         summary_.pc2 && summary_.pc2->points == 0 ? "the cache has no points"
                                                   : cache_.ReadProblem());
  }
  return values;
}

Array Source::Fetch(const ChannelSummary& channel, const Moment& moment) {
  if (summary_.format == KelCache::eNCFormat) return FetchNC(channel, moment);
  if (summary_.format == KelCache::eAlembicFormat) return FetchAlembic(channel, moment);
  unsigned int length = 0;
  const float* points = FetchFloats(channel, moment, &length);
  return {points, ValueType::eFloat32, length / channel.components, channel.components};
}

Array Source::FetchNC(const ChannelSummary& channel, const Moment& moment) {
  Array array{nullptr, channel.value, ElementsAt(channel, moment), channel.components};
  void* const room = RoomFor(array);
  array.values = room;
  KelTime time = moment.time;
  bool read = false;
  if (array.type == ValueType::eInt32) {
    read = cache_->Read(channel.index, time, static_cast<int*>(room), array.elements, nullptr);
  } else if (array.type == ValueType::eFloat32) {
    read = cache_->Read(channel.index, time, static_cast<float*>(room), array.elements, nullptr);
  } else {
    read = cache_->Read(channel.index, time, static_cast<double*>(room), array.elements, nullptr);
  }
  if (!read) Fail(channel, moment, cache_.ReadProblem());
  return array;
}

// The room of the largest sample serves all, so that a sample is one read.
Array Source::FetchAlembic(const ChannelSummary& channel, const Moment& moment) {
  AlembicInterface& archive = cache_.Alembic();
  Array array{nullptr, channel.value, channel.points.value_or(0), channel.components};
  void* const room = RoomFor(array);
  array.values = room;
  if (!archive.ReadSample(IndexOf(channel), SampleAt(channel, moment), room, array.elements)) {
    Fail(channel, moment, archive.GetErrorString());
  }
  if (array.type == ValueType::eBool) {
    auto* const bytes = static_cast<std::uint8_t*>(room);
    for (std::size_t i = 0; i < array.Count(); ++i) bytes[i] = bytes[i] != 0 ? 1 : 0;
  }
  return array;
}

std::optional<SampleRun> Source::RunAt(const ChannelSummary& channel, const Moment& moment) {
  if (summary_.format != KelCache::eAlembicFormat || !moment.sample) return {};
  SampleRun run;
  unsigned int first = 0;
  AlembicInterface& archive = cache_.Alembic();
  if (!archive.GetSampleRun(IndexOf(channel), *moment.sample, first, run.last, run.identity)) {
    Fail(channel, moment, archive.GetErrorString());
  }
  return run;
}

bool SayWhatIsMissing(const Source& source, const FrameRange& range) {
  const CacheSummary& summary = source.summary();
  if (!summary.pc2 || summary.complete || summary.pc2->points == 0) return false;
  const PC2Summary& pc2 = *summary.pc2;
  PrintError(summary.file + ": cut short: " + summary.WhatIsMissing());
  const double firstMissing = pc2.startFrame + pc2.wholeSamples * pc2.sampleRate;
  const double lastMissing = pc2.startFrame + (pc2.samples - 1.0) * pc2.sampleRate;
  return !(range.to && std::min(firstMissing, lastMissing) > *range.to + kFrameTolerance) &&
         !(range.from && std::max(firstMissing, lastMissing) < *range.from - kFrameTolerance);
}

}  // namespace kelcache
