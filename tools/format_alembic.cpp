#include "tools/formats.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

unsigned int IndexOf(const ChannelSummary& channel) {
  return static_cast<unsigned int>(channel.index);
}

const char* SamplingName(AlembicChannelInfo::ESampling sampling) {
  switch (sampling) {
    case AlembicChannelInfo::eUniform: return "uniform";
    case AlembicChannelInfo::eCyclic: return "cyclic";
    case AlembicChannelInfo::eAcyclic: return "acyclic";
  }
  return "acyclic";
}

ChannelSummary SummariseChannel(CacheFile& cache, unsigned int index) {
  AlembicInterface& archive = cache.Alembic();
  AlembicChannelInfo info;
  if (!archive.GetChannelInfo(index, info)) throw Failed(cache.file(), archive.GetErrorString());
  ChannelSummary channel;
  channel.index = static_cast<int>(index);
  channel.name = info.name.Buffer();
  channel.type = info.type.Buffer();
  if (!info.interpretation.IsEmpty()) channel.interpretation = info.interpretation.Buffer();
  channel.samples = info.sampleCount;
  channel.points = info.elementCount;
  channel.components = archive.GetChannelDataLength(index);
  channel.start = info.start;
  channel.end = info.end;
  channel.sampling = SamplingName(info.sampling);
  if (info.sampling == AlembicChannelInfo::eUniform && info.sampleCount > 1) {
    channel.interval = info.period;
    channel.declaredTicks = info.period * kTicksPerSecond;
  }
  channel.value = info.value;
  if (!IsWideInteger(info.value)) {
    channel.elementType = ElementTypeOf(info.value, channel.components);
  }
  return channel;
}

void Summarise(CacheFile& cache, CacheSummary* summary) {
  summary->problems = cache.Alembic().GetProblemCount();
  summary->complete = summary->problems == 0;
  const auto count = static_cast<unsigned int>(cache.Alembic().GetNumChannels());
  for (unsigned int i = 0; i < count; ++i) {
    summary->channels.push_back(SummariseChannel(cache, i));
  }
}

Moment MomentOf(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
                unsigned int sample) {
  double seconds = 0;
  if (!cache.Alembic().GetSampleTime(IndexOf(channel), sample, seconds)) {
    throw Failed(cache.file(), "sample " + std::to_string(sample) + " has no time");
  }
  Moment moment = MomentAt(summary, seconds * kTicksPerSecond, sample);
  moment.seconds = seconds;
  moment.time = kelsdk::KelTime::FromSeconds(seconds);
  return moment;
}

unsigned int SampleAt(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
                      const Moment& moment) {
  if (moment.sample) return *moment.sample;
  unsigned int sample = 0;
  if (!cache.Alembic().GetSampleAtTime(IndexOf(channel), moment.time, sample)) {
    FailAt(summary, channel, moment, cache.Alembic().GetErrorString());
  }
  return sample;
}

unsigned int ElementsAt(CacheFile& cache, const CacheSummary& summary,
                        const ChannelSummary& channel, const Moment& moment) {
  unsigned int elements = 0;
  const unsigned int sample = SampleAt(cache, summary, channel, moment);
  if (!cache.Alembic().GetSampleLength(IndexOf(channel), sample, elements)) {
    FailAt(summary, channel, moment, cache.Alembic().GetErrorString());
  }
  return elements;
}

// The room of the largest sample serves all, so that a sample is one read.
Array Fetch(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
            const Moment& moment, Room* room) {
  Array array{nullptr, channel.value, channel.points.value_or(0), channel.components};
  void* const values = room->For(array);
  array.values = values;
  const unsigned int sample = SampleAt(cache, summary, channel, moment);
  if (!cache.Alembic().ReadSample(IndexOf(channel), sample, values, array.elements)) {
    FailAt(summary, channel, moment, cache.Alembic().GetErrorString());
  }
  if (array.type == ValueType::eBool) {
    auto* const bytes = static_cast<std::uint8_t*>(values);
    for (std::size_t i = 0; i < array.Count(); ++i) bytes[i] = bytes[i] != 0 ? 1 : 0;
  }
  return array;
}

SampleRun RunOf(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
                const Moment& moment) {
  SampleRun run;
  unsigned int first = 0;
  if (!cache.Alembic().GetSampleRun(IndexOf(channel), *moment.sample, first, run.last,
                                    run.identity)) {
    FailAt(summary, channel, moment, cache.Alembic().GetErrorString());
  }
  return run;
}

void Verify(const std::string& file, VerifyReport* report) {
  AlembicInterface reader(true);
  if (!reader.Open(file.c_str(), 1)) return VerifyReport::Line(report, reader.GetErrorString());
  reader.Verify(VerifyReport::Line, report, VerifyReport::Proceed);
}

bool AnyFile(const std::string& file, const std::function<bool(const std::string&)>& fails) {
  return fails(file);
}

void ListTree(CacheFile& cache, const Say& say) {
  Say told = say;
  if (cache.Alembic().ListTree(SayLine, &told)) return;
  throw Failed(cache.file(), cache.Alembic().GetErrorString());
}

}  // namespace

const FormatRow kAlembicRow = {
    .format = kelsdk::KelCache::eAlembicFormat,
    .name = "alembic",
    .extension = ".abc",
    .whyNotWritten = "Alembic archives are only read",
    .forms = [] { return std::string(AlembicInterface::Containers()); },
    .ownsExtension = false,
    .hasLayouts = false,
    .storesRate = false,
    .assumesRate = false,
    .isWritersFolder = nullptr,
    .isOne = nullptr,
    .summarise = Summarise,
    .momentOf = MomentOf,
    .elementsAt = ElementsAt,
    .fetch = Fetch,
    .fetchRun = nullptr,
    .runOf = RunOf,
    .spacing = nullptr,
    .verify = Verify,
    .anyFile = AnyFile,
    .recover = nullptr,
    .leftovers = nullptr,
    .follow = nullptr,
    .listLeftovers = nullptr,
    .removeLeftover = nullptr,
    .expectFree = nullptr,
    .listTree = ListTree,
};

}  // namespace kelcache
