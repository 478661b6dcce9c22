#include "backends/zuPointCache2IO.h"
#include "tools/formats.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::zuPointCache2IO;

constexpr unsigned int kCoordinates = 3;

void SummariseSamples(CacheSummary* summary) {
  const PC2Summary& pc2 = *summary->pc2;
  const double perSecond = summary->rate.PerSecond();
  ChannelSummary channel;
  channel.samples = pc2.wholeSamples;
  channel.points = pc2.points;
  channel.type = TypeText(channel.value, kCoordinates);
  channel.elementType = kelsdk::zuCacheData::eNCFloatVectorArray;
  channel.sampling = "regular";
  channel.interval = pc2.sampleRate / perSecond;
  channel.declaredTicks = *channel.interval * kTicksPerSecond;
  if (channel.samples != 0) {
    channel.start = pc2.startFrame / perSecond;
    channel.end = (pc2.startFrame + (channel.samples - 1) * pc2.sampleRate) / perSecond;
  }
  summary->channels.push_back(channel);
}

void Summarise(CacheFile& cache, CacheSummary* summary) {
  PC2Summary pc2;
  pc2.points = cache->GetPointCount(nullptr) / kCoordinates;
  pc2.samples = cache->GetSampleCount(nullptr);
  pc2.startFrame = cache->GetFrameStartOffset(nullptr);
  pc2.sampleRate = cache->GetSamplingFrameRate(nullptr);
  // The object knows the header; how much of what it promises is there, only the file tells.
  pc2.wholeSamples = cache.PC2().wholeSampleCount();
  summary->promisedSize = cache.PC2().promisedSize();
  summary->complete = summary->fileSize >= *summary->promisedSize;
  summary->pc2 = pc2;
  if (!summary->rate.IsValid()) {
    summary->rate = kAssumedFrameRate;
    summary->frameRateSource = "assumed";
  }
  SummariseSamples(summary);
}

// Scene frame = start + sample x rate, but the fetch takes the time of frame I for sample I. This
// is the one place that knows.
Moment MomentOf(CacheFile& /*cache*/, const CacheSummary& summary,
                const ChannelSummary& /*channel*/, unsigned int sample) {
  const PC2Summary& pc2 = *summary.pc2;
  Moment moment;
  moment.sample = sample;
  moment.frame = pc2.startFrame + double(sample) * pc2.sampleRate;
  moment.seconds = *moment.frame / summary.rate.PerSecond();
  moment.ticks = *moment.frame * (kTicksPerSecond / summary.rate.PerSecond());
  moment.time = kelsdk::KelTime::FromFrame(sample);
  return moment;
}

unsigned int ElementsAt(CacheFile& /*cache*/, const CacheSummary& summary,
                        const ChannelSummary& /*channel*/, const Moment& /*moment*/) {
  return summary.pc2->points;
}

Array Fetch(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
            const Moment& moment, Room* room) {
  if (summary.pc2->points == 0) FailAt(summary, channel, moment, "the cache has no points");
  Array array{nullptr, channel.value, summary.pc2->points, kCoordinates};
  auto* const points = static_cast<float*>(room->For(array));
  array.values = points;
  if (!cache.PC2().readSample(*moment.sample, points, array.elements)) {
    FailAt(summary, channel, moment, cache.PC2().errorString());
  }
  return array;
}

bool FetchRun(CacheFile& cache, unsigned int firstSample, unsigned int samples, void* values) {
  return cache.PC2().readSamples(firstSample, samples, static_cast<float*>(values));
}

std::optional<Spacing> SpacingFrom(CacheFile& /*cache*/, const CacheSummary& summary,
                                   const ChannelSummary& /*channel*/, const Moment& first) {
  return Spacing{*first.frame, summary.pc2->sampleRate};
}

void Verify(const std::string& file, VerifyReport* report) {
  zuPointCache2IO::verify(file.c_str(), VerifyReport::Line, report, VerifyReport::Proceed);
}

bool AnyFile(const std::string& file, const std::function<bool(const std::string&)>& fails) {
  return fails(file);
}

bool Recover(const std::string& file, bool force, const Say& say) {
  zuPointCache2IO::recoverOptions how;
  how.force = force;
  unsigned int saved = 0;
  Say told = say;
  return zuPointCache2IO::recover(file.c_str(), how, saved, SayLine, &told);
}

unsigned int Leftovers(const std::string& file) {
  return zuPointCache2IO::leftovers(file.c_str(), nullptr, nullptr);
}

bool Follow(const std::string& file, FollowReport* report) {
  return zuPointCache2IO::follow(file.c_str(), FollowReport::Look, FollowReport::Line, report);
}

bool LeftoversIn(const std::string& folder, const LeftoverFunction& told, const Say& say) {
  return ListLeftovers(zuPointCache2IO::listLeftovers, folder, told, say);
}

bool RemoveLeftover(const std::string& folder, const std::string& name, bool force,
                    const Say& say) {
  Say told = say;
  return zuPointCache2IO::removeLeftover(folder.c_str(), name.c_str(), force, SayLine, &told);
}

}  // namespace

const FormatRow kPC2Row = {
    .format = kelsdk::KelCache::ePC2Format,
    .name = "pc2",
    .extension = ".pc2",
    .whyNotWritten = nullptr,
    .forms = [] { return std::string("version 1"); },
    .ownsExtension = false,
    .hasLayouts = false,
    .storesRate = false,
    .assumesRate = true,
    .isWritersFolder = nullptr,
    .isOne = nullptr,
    .summarise = Summarise,
    .momentOf = MomentOf,
    .elementsAt = ElementsAt,
    .fetch = Fetch,
    .fetchRun = FetchRun,
    .runOf = nullptr,
    .spacing = SpacingFrom,
    .verify = Verify,
    .anyFile = AnyFile,
    .recover = Recover,
    .leftovers = Leftovers,
    .follow = Follow,
    .listLeftovers = LeftoversIn,
    .removeLeftover = RemoveLeftover,
    .expectFree = nullptr,
    .listTree = nullptr,
};

}  // namespace kelcache
