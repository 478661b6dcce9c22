#include <filesystem>
#include <fstream>
#include <numeric>

#include "tools/formats.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;
using kelsdk::KelString;
using kelsdk::KelTime;
using kelsdk::zuCacheFileInterface;

constexpr long long kUnitsPerTick = KelTime::kUnitsPerSecond / kTicksPerSecond;

unsigned int IndexOf(const ChannelSummary& channel) {
  return static_cast<unsigned int>(channel.index);
}

void SummariseTimes(CacheFile& cache, ChannelSummary* channel) {
  cache->GetChannelSampleCount(channel->index, channel->samples, nullptr);
  auto sampling = KelCache::eNCSamplingIrregular;
  cache->GetChannelSamplingType(channel->index, sampling, nullptr);
  channel->sampling = sampling == KelCache::eNCSamplingRegular ? "regular" : "irregular";
  KelTime interval;
  if (cache->GetChannelSamplingRate(channel->index, interval, nullptr)) {
    channel->interval = interval.GetSeconds();
  }
  unsigned int declared = 0;
  if (cache.NC().declaredInterval(IndexOf(*channel), declared)) channel->declaredTicks = declared;
  KelTime start;
  KelTime end;
  if (channel->samples == 0 || !cache->GetAnimationRange(channel->index, start, end, nullptr)) {
    return;
  }
  channel->start = start.GetSeconds();
  channel->end = end.GetSeconds();
  unsigned int points = 0;
  if (cache->GetChannelPointCount(channel->index, start, points, nullptr)) channel->points = points;
}

ChannelSummary SummariseChannel(CacheFile& cache, int index) {
  ChannelSummary channel;
  channel.index = index;
  KelString text;
  if (cache->GetChannelName(index, text, nullptr)) channel.name = text.Buffer();
  if (cache->GetChannelInterpretation(index, text, nullptr)) channel.interpretation = text.Buffer();
  auto type = KelCache::eNCUnknownData;
  cache->GetChannelDataType(index, type, nullptr);
  const auto elementType = static_cast<ElementType>(type);
  channel.elementType = elementType;
  channel.components = std::max(1U, kelsdk::GetTypeLength(elementType));
  channel.value = ValueTypeOf(elementType);
  const bool holdsArrays = kelsdk::GetTypeSize(elementType) != 0;
  channel.type = holdsArrays ? TypeText(channel.value, channel.components) : "none";
  cache.NC().maximumError(IndexOf(channel), channel.maximumError);
  SummariseTimes(cache, &channel);
  return channel;
}

void SummariseFiles(CacheFile& cache, CacheSummary* summary) {
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

CompactSummary SummariseCompact(zuCacheFileInterface& cache) {
  CompactSummary compact;
  compact.encoding = cache.compactEncoding();
  unsigned long long arrays = 0;
  unsigned long long stored = 0;
  if (cache.arraySizes(arrays, stored)) {
    compact.arrayBytes = arrays;
    compact.storedBytes = stored;
  }
  return compact;
}

void Summarise(CacheFile& cache, CacheSummary* summary) {
  summary->onTicks = true;
  const int count = cache->GetChannelCount(nullptr);
  for (int i = 0; i < count; ++i) summary->channels.push_back(SummariseChannel(cache, i));
  const int ticks = cache.NC().getTicksPerFrame();
  summary->ticksPerFrame = ticks;
  if (!summary->rate.IsValid() && ticks > 0) {
    if (!cache.NC().exactFrameRate(summary->rate)) {
      const int common = std::gcd(kTicksPerSecond, ticks);
      summary->rate = {static_cast<std::uint32_t>(kTicksPerSecond / common),
                       static_cast<std::uint32_t>(ticks / common)};
    }
    summary->frameRateSource = "stored";
  }
  SummariseFiles(cache, summary);
  if (cache.NC().compactEncoding() != 0) summary->compact = SummariseCompact(cache.NC());
}

Moment MomentOf(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
                unsigned int sample) {
  KelTime time;
  kelsdk::KelStatus status;
  if (!cache->GetDataTime(channel.index, sample, time, &status)) {
    cache.Fail(status, "sample " + std::to_string(sample) + " has no time");
  }
  const long long ticks = time.Get() / kUnitsPerTick;
  Moment moment = MomentAt(summary, static_cast<double>(ticks), sample);
  moment.time = time;
  return moment;
}

unsigned int ElementsAt(CacheFile& cache, const CacheSummary& summary,
                        const ChannelSummary& channel, const Moment& moment) {
  unsigned int elements = 0;
  if (!cache->GetChannelPointCount(channel.index, moment.time, elements, nullptr)) {
    FailAt(summary, channel, moment, cache.ReadProblem());
  }
  return elements;
}

Array Fetch(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
            const Moment& moment, Room* room) {
  Array array{nullptr, channel.value, ElementsAt(cache, summary, channel, moment),
              channel.components};
  void* const values = room->For(array);
  array.values = values;
  KelTime time = moment.time;
  const auto read = [&](auto* typed) {
    return cache->Read(channel.index, time, typed, array.elements, nullptr);
  };
  const bool done = array.type == ValueType::eInt32     ? read(static_cast<int*>(values))
                    : array.type == ValueType::eFloat32 ? read(static_cast<float*>(values))
                                                        : read(static_cast<double*>(values));
  if (!done) FailAt(summary, channel, moment, cache.ReadProblem());
  return array;
}

std::optional<Spacing> SpacingFrom(CacheFile& cache, const CacheSummary& summary,
                                   const ChannelSummary& channel, const Moment& first) {
  const TickRate rate(summary.rate);
  Spacing spacing;
  if (!cache.NC().evenSpacing(IndexOf(channel), rate.ticksPerFrame, rate.exactRate, spacing.start,
                              spacing.interval)) {
    return {};
  }
  spacing.start += *first.sample * spacing.interval;
  return spacing;
}

void Verify(const std::string& file, VerifyReport* report) {
  const NCName name(file);
  zuCacheFileInterface::verify(name.folder.c_str(), name.baseName.c_str(), VerifyReport::Line,
                               report, VerifyReport::Proceed);
}

struct FileSearch {
  const std::string& folder;
  const std::function<bool(const std::string&)>& fails;
  bool found = false;
};

bool AnyFile(const std::string& file, const std::function<bool(const std::string&)>& fails) {
  const NCName name(file);
  FileSearch search{name.folder, fails, fails(file)};
  const auto look = [](void* context, const char* dataFile, bool /*isReplaceable*/) {
    auto& one = *static_cast<FileSearch*>(context);
    one.found = one.found || one.fails(one.folder + dataFile);
  };
  zuCacheFileInterface::dataFilesInTheWay(name.folder.c_str(), name.baseName.c_str(), look,
                                          &search);
  return search.found;
}

bool IsPartialFolder(const std::string& name) {
  return zuCacheFileInterface::isPartialFolder(name.c_str());
}

// Any XML file has the extension. One that is damaged at its beginning has its data files beside
// it.
bool IsOne(const std::string& file) {
  constexpr std::streamsize kHead = 4096;
  std::ifstream in(file, std::ios::binary);
  if (!in) return true;  // whoever opens it is told why it cannot be
  std::string head(kHead, '\0');
  in.read(head.data(), kHead);
  head.resize(static_cast<std::size_t>(in.gcount()));
  if (head.find("<nccache") != std::string::npos) return true;
  const NCName name(file);
  return zuCacheFileInterface::dataFilesInTheWay(name.folder.c_str(), name.baseName.c_str(),
                                                 nullptr, nullptr) != 0;
}

bool Recover(const std::string& file, bool force, const Say& say) {
  const NCName name(file);
  zuCacheFileInterface::recoverOptions how;
  how.force = force;
  unsigned int saved = 0;
  Say told = say;
  return zuCacheFileInterface::recover(name.folder.c_str(), name.baseName.c_str(), how, saved,
                                       SayLine, &told);
}

unsigned int Leftovers(const std::string& file) {
  const NCName name(file);
  return zuCacheFileInterface::leftovers(name.folder.c_str(), name.baseName.c_str(), nullptr,
                                         nullptr);
}

bool Follow(const std::string& file, FollowReport* report) {
  const NCName name(file);
  return zuCacheFileInterface::follow(name.folder.c_str(), name.baseName.c_str(),
                                      FollowReport::Look, FollowReport::Line, report);
}

bool LeftoversIn(const std::string& folder, const LeftoverFunction& told, const Say& say) {
  return ListLeftovers(zuCacheFileInterface::listLeftovers, folder, told, say);
}

bool RemoveLeftover(const std::string& folder, const std::string& name, bool force,
                    const Say& say) {
  Say told = say;
  return zuCacheFileInterface::removeLeftover(folder.c_str(), name.c_str(), force, SayLine, &told);
}

std::string Forms() {
  return "raw (.ncx), compact (.ncc) in encodings " +
         std::to_string(zuCacheFileInterface::kFirstCompactEncoding) + " and " +
         std::to_string(zuCacheFileInterface::kCompactEncoding);
}

// A file that bears the name of a data file is in the way even where no description claims it.
void ExpectFree(const std::string& file, bool force) {
  struct Found {
    std::string replaceable;
    std::string other;
  } found;
  const auto note = [](void* context, const char* name, bool isReplaceable) {
    auto* first = static_cast<Found*>(context);
    (isReplaceable ? first->replaceable : first->other) = name;
  };
  const NCName name(file);
  zuCacheFileInterface::dataFilesInTheWay(name.folder.c_str(), name.baseName.c_str(), note, &found);
  const std::filesystem::path folder = std::filesystem::path(file).parent_path();
  if (!found.other.empty()) {
    throw Failed((folder / found.other).string(), "is in the way and is no NC data file");
  }
  if (!found.replaceable.empty() && !force) {
    throw Failed((folder / found.replaceable).string(), "exists already; --force replaces it");
  }
}

}  // namespace

const FormatRow kNCRow = {
    .format = KelCache::eNCFormat,
    .name = "nc",
    .extension = ".xml",
    .whyNotWritten = nullptr,
    .forms = Forms,
    .ownsExtension = true,
    .hasLayouts = true,
    .storesRate = true,
    .assumesRate = false,
    .isWritersFolder = IsPartialFolder,
    .isOne = IsOne,
    .summarise = Summarise,
    .momentOf = MomentOf,
    .elementsAt = ElementsAt,
    .fetch = Fetch,
    .fetchRun = nullptr,
    .runOf = nullptr,
    .spacing = SpacingFrom,
    .verify = Verify,
    .anyFile = AnyFile,
    .recover = Recover,
    .leftovers = Leftovers,
    .follow = Follow,
    .listLeftovers = LeftoversIn,
    .removeLeftover = RemoveLeftover,
    .expectFree = ExpectFree,
    .listTree = nullptr,
};

}  // namespace kelcache
