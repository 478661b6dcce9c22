#include "tools/summary.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <numeric>

#include "backends/zuPointCache2IO.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;
using kelsdk::KelString;
using kelsdk::KelTime;

std::uint64_t SizeOfFile(const std::string& path) {
  std::error_code unknown;
  const auto size = std::filesystem::file_size(path, unknown);
  return unknown ? 0 : size;
}

const char* TypeName(KelCache::ENCDataType type) {
  switch (type) {
    case KelCache::eNCUnknownData: return "unknown";
    case KelCache::eNCDouble: return "double";
    case KelCache::eNCDoubleArray: return "doubleArray";
    case KelCache::eNCDoubleVectorArray: return "doubleVectorArray";
    case KelCache::eNCInt32Array: return "int32Array";
    case KelCache::eNCFloatArray: return "floatArray";
    case KelCache::eNCFloatVectorArray: return "floatVectorArray";
  }
  return "unknown";
}

void SummarisePC2(CacheFile& cache, CacheSummary* summary) {
  PC2Summary pc2;
  pc2.points = cache->GetPointCount(nullptr) / 3;
  pc2.samples = cache->GetSampleCount(nullptr);
  pc2.startFrame = cache->GetFrameStartOffset(nullptr);
  pc2.sampleRate = cache->GetSamplingFrameRate(nullptr);
  // The object knows the header; how much of what it promises is there, only the file tells.
  kelsdk::zuPointCache2IO reader;
  if (!reader.initialize(cache.file().c_str(), kelsdk::zuPointCache2IO::readMode)) {
    throw Failed(cache.file(), reader.errorString());
  }
  pc2.wholeSamples = reader.wholeSampleCount();
  summary->promisedSize = reader.promisedSize();
  summary->complete = summary->fileSize >= *summary->promisedSize;
  if (!summary->rate.IsValid()) {
    summary->rate = kAssumedFrameRate;
    summary->frameRateSource = "assumed";
  }
  const double perSecond = summary->rate.PerSecond();
  ChannelSummary channel;
  channel.samples = pc2.wholeSamples;
  channel.points = pc2.points;
  channel.sampling = "regular";
  channel.interval = pc2.sampleRate / perSecond;
  if (channel.samples != 0) {
    channel.start = pc2.startFrame / perSecond;
    channel.end = (pc2.startFrame + (channel.samples - 1) * pc2.sampleRate) / perSecond;
  }
  summary->channels.push_back(channel);
  summary->pc2 = pc2;
}

ChannelSummary SummariseNCChannel(CacheFile& cache, int index) {
  ChannelSummary channel;
  channel.index = index;
  KelString text;
  if (cache->GetChannelName(index, text, nullptr)) channel.name = text.Buffer();
  if (cache->GetChannelInterpretation(index, text, nullptr)) channel.interpretation = text.Buffer();
  auto type = KelCache::eNCUnknownData;
  if (cache->GetChannelDataType(index, type, nullptr)) channel.type = TypeName(type);
  const auto elementType = static_cast<ElementType>(type);
  channel.components = std::max(1U, kelsdk::GetTypeLength(elementType));
  channel.value = ValueTypeOf(elementType);
  cache->GetChannelSampleCount(index, channel.samples, nullptr);
  auto sampling = KelCache::eNCSamplingIrregular;
  cache->GetChannelSamplingType(index, sampling, nullptr);
  channel.sampling = sampling == KelCache::eNCSamplingRegular ? "regular" : "irregular";
  KelTime interval;
  if (cache->GetChannelSamplingRate(index, interval, nullptr)) {
    channel.interval = interval.GetSeconds();
  }
  KelTime start;
  KelTime end;
  if (channel.samples != 0 && cache->GetAnimationRange(index, start, end, nullptr)) {
    channel.start = start.GetSeconds();
    channel.end = end.GetSeconds();
    unsigned int points = 0;
    if (cache->GetChannelPointCount(index, start, points, nullptr)) channel.points = points;
  }
  return channel;
}

void SummariseNC(CacheFile& cache, CacheSummary* summary) {
  const int count = cache->GetChannelCount(nullptr);
  for (int i = 0; i < count; ++i) summary->channels.push_back(SummariseNCChannel(cache, i));
  summary->ticksPerFrame = cache.NC().getTicksPerFrame();
  if (!summary->rate.IsValid() && *summary->ticksPerFrame > 0) {
    if (!cache.NC().exactFrameRate(summary->rate)) {
      const int ticks = *summary->ticksPerFrame;
      const int common = std::gcd(kTicksPerSecond, ticks);
      summary->rate = {static_cast<std::uint32_t>(kTicksPerSecond / common),
                       static_cast<std::uint32_t>(ticks / common)};
    }
    summary->frameRateSource = "stored";
  }
  const int files = cache->GetCacheDataFileCount(nullptr);
  for (int i = 0; i < files; ++i) {
    KelString relative;
    KelString absolute;
    if (!cache->GetCacheDataFileName(i, relative, absolute, nullptr)) continue;
    std::error_code missing;
    if (!std::filesystem::exists(absolute.Buffer(), missing)) summary->complete = false;
    summary->dataFiles.push_back({absolute.Buffer(), SizeOfFile(absolute.Buffer())});
    summary->fileSize += summary->dataFiles.back().size;
  }
}

const char* SamplingName(AlembicChannelInfo::ESampling sampling) {
  switch (sampling) {
    case AlembicChannelInfo::eUniform: return "uniform";
    case AlembicChannelInfo::eCyclic: return "cyclic";
    case AlembicChannelInfo::eAcyclic: return "acyclic";
  }
  return "acyclic";
}

void SummariseAlembic(CacheFile& cache, CacheSummary* summary) {
  AlembicInterface& reader = cache.Alembic();
  summary->problems = reader.GetProblemCount();
  summary->complete = summary->problems == 0;
  for (int i = 0; i < reader.GetNumChannels(); ++i) {
    const auto index = static_cast<unsigned int>(i);
    AlembicChannelInfo info;
    if (!reader.GetChannelInfo(index, info)) throw Failed(cache.file(), reader.GetErrorString());
    ChannelSummary channel;
    channel.index = i;
    channel.name = info.name.Buffer();
    channel.type = info.type.Buffer();
    if (!info.interpretation.IsEmpty()) channel.interpretation = info.interpretation.Buffer();
    channel.samples = info.sampleCount;
    channel.points = info.elementCount;
    channel.components = reader.GetChannelDataLength(index);
    channel.start = info.start;
    channel.end = info.end;
    channel.sampling = SamplingName(info.sampling);
    if (info.sampling == AlembicChannelInfo::eUniform && info.sampleCount > 1) {
      channel.interval = info.period;
    }
    channel.value = info.value;
    summary->channels.push_back(channel);
  }
}

// A format without a stored rate: that of the first channel that moves at even steps.
void DeriveFrameRate(CacheSummary* summary) {
  if (summary->rate.IsValid()) return;
  for (const ChannelSummary& channel : summary->channels) {
    if (channel.samples < 2 || channel.interval.value_or(0) <= 0) continue;
    summary->rate = kelsdk::KelFrameRate::FromComputed(1 / *channel.interval);
    if (!summary->rate.IsValid()) continue;
    summary->frameRateSource = "derived";
    return;
  }
}

}  // namespace

const ChannelSummary& CacheSummary::FindChannel(const std::string& nameOrNumber) const {
  for (const ChannelSummary& channel : channels) {
    if (channel.name == nameOrNumber) return channel;
  }
  std::size_t number = 0;
  const char* const end = nameOrNumber.data() + nameOrNumber.size();
  const auto parsed = std::from_chars(nameOrNumber.data(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end) {
    throw ToolError(eUsage, file + ": no channel \"" + nameOrNumber + '"');
  }
  if (number < channels.size()) return channels[number];
  throw ToolError(eUsage, file + ": no channel " + nameOrNumber + ", it has " +
                              std::to_string(channels.size()));
}

std::string CacheSummary::WhatIsMissing() const {
  if (complete) return "";
  if (pc2) {
    return "holds " + std::to_string(pc2->wholeSamples) + " whole samples of " +
           std::to_string(pc2->samples) + " claimed";
  }
  if (problems == 0) return "data files are missing";
  return std::to_string(problems) + (problems == 1 ? " part is" : " parts are") +
         " damaged and left out; verify tells which";
}

std::optional<double> CacheSummary::start() const {
  std::optional<double> earliest;
  for (const ChannelSummary& channel : channels) {
    if (channel.start && (!earliest || *channel.start < *earliest)) earliest = channel.start;
  }
  return earliest;
}

std::optional<double> CacheSummary::end() const {
  std::optional<double> latest;
  for (const ChannelSummary& channel : channels) {
    if (channel.end && (!latest || *channel.end > *latest)) latest = channel.end;
  }
  return latest;
}

std::optional<double> CacheSummary::duration() const {
  std::optional<double> longest;
  for (const ChannelSummary& channel : channels) {
    if (!channel.interval) continue;
    const double duration = channel.samples * *channel.interval;
    if (!longest || duration > *longest) longest = duration;
  }
  return longest;
}

CacheSummary Summarise(CacheFile& cache, const kelsdk::KelFrameRate& rate) {
  CacheSummary summary;
  summary.file = cache.file();
  summary.format = cache.format();
  summary.fileSize = SizeOfFile(cache.file());
  summary.frameRateSource = "none";
  if (rate.IsValid()) {
    summary.rate = rate;
    summary.frameRateSource = "given";
  }
  switch (cache.format()) {
    case KelCache::ePC2Format: SummarisePC2(cache, &summary); break;
    case KelCache::eNCFormat: SummariseNC(cache, &summary); break;
    case KelCache::eAlembicFormat: SummariseAlembic(cache, &summary); break;
    case KelCache::eUnknownFormat: break;
  }
  DeriveFrameRate(&summary);
  return summary;
}

}  // namespace kelcache
