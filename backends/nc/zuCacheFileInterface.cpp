#include "backends/zuCacheFileInterface.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "backends/nc/even_spacing.h"
#include "backends/nc/publish.h"
#include "backends/nc/zuCacheFileInterface_impl.h"
#include "host/KelMemory.h"

namespace kelsdk {

using io::Error;

namespace {

using nc::OnCache;
using nc::OnChannel;
using nc::OnNothingOpen;
using nc::OnWriter;
using nc::Opening;
using nc::Run;

char* CopyText(const std::string& text) {
  auto* const copy = static_cast<char*>(KelMalloc(static_cast<unsigned int>(text.size() + 1)));
  if (copy != nullptr) std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

bool HandOut(const std::string& text, char** target, Error& error) {
  char* const copy = target != nullptr ? CopyText(text) : nullptr;
  if (copy == nullptr) return error.Set(Error::eNoMemory, "no memory for a text");
  *target = copy;
  return true;
}

template <typename Impl>
nc::Extent ExtentOf(Impl* impl, unsigned int channel) {
  return Run(impl, OnChannel{channel}, nc::Extent(),
             [&](const nc::OpenCache& cache) { return cache.ExtentOf(channel); });
}

// The description of the open cache; null when none is open.
template <typename Impl>
const nc::Description* InfoOf(Impl* impl) {
  const nc::OpenCache* const cache = impl != nullptr ? impl->Open() : nullptr;
  return cache != nullptr ? &cache->Info() : nullptr;
}

}  // namespace

zuCacheFileInterface::zuCacheFileInterface() : impl(new (std::nothrow) Impl) {}

zuCacheFileInterface::~zuCacheFileInterface() {
  delete impl;
}

bool zuCacheFileInterface::initFileRead(const char* baseName, const char* folder) {
  return Run(impl, OnNothingOpen{}, false, [&](Impl& self) {
    Opening opening(&self.reader);
    return opening.Done(nc::MakeCacheName(folder, baseName, &self.name, self.error) &&
                        self.reader->Open(self.name, self.error));
  });
}

bool zuCacheFileInterface::initFileWrite(const char* folder, const char* baseName,
                                         cacheFileFormat format, const char* dataFileTag,
                                         int ticksPerFrame) {
  return initFileWrite(folder, baseName, format, dataFileTag, ticksPerFrame, {0, 0});
}

bool zuCacheFileInterface::initFileWrite(const char* folder, const char* baseName,
                                         cacheFileFormat format, const char* dataFileTag,
                                         int ticksPerFrame, const KelFrameRate& exactRate,
                                         unsigned int compactEncoding) {
  return Run(impl, OnNothingOpen{}, false, [&](Impl& self) {
    Opening opening(&self.writer);
    nc::FileLayout layout;
    return opening.Done(nc::MakeCacheName(folder, baseName, &self.name, self.error) &&
                        nc::MakeLayout(format == eFilePerFrame, dataFileTag, ticksPerFrame,
                                       exactRate, compactEncoding, &layout, self.error) &&
                        self.writer->Begin(self.name, layout, self.error));
  });
}

bool zuCacheFileInterface::addChannel(const char* channelName, const char* interpretation,
                                      zuCacheData::zuCacheDataType dataType,
                                      unsigned int& channelIndex) {
  return addChannel(channelName, interpretation, dataType, 0, channelIndex);
}

bool zuCacheFileInterface::addChannel(const char* channelName, const char* interpretation,
                                      zuCacheData::zuCacheDataType dataType,
                                      unsigned int intervalTicks, unsigned int& channelIndex) {
  return Run(impl, OnWriter{}, false, [&](nc::CacheWriter& writer) {
    std::uint32_t index = 0;
    const bool added = writer.AddChannel(channelName, interpretation, dataType, intervalTicks,
                                         &index, impl->error);
    if (added) channelIndex = index;
    return added;
  });
}

bool zuCacheFileInterface::setMaximumError(unsigned int channelIndex, double maximumError) {
  return impl != nullptr && impl->Target(OnChannel{channelIndex}) != nullptr &&
         Run(impl, OnWriter{}, false, [&](nc::CacheWriter& writer) {
           return writer.SetMaximumError(channelIndex, maximumError, impl->error);
         });
}

bool zuCacheFileInterface::maximumError(unsigned int channelIndex, double& maximumError) const {
  return Run(impl, OnChannel{channelIndex}, false, [&](nc::OpenCache& cache) {
    maximumError = cache.Info().channels[channelIndex].maximumError;
    return true;
  });
}

void zuCacheFileInterface::setOptimizeMultiChannelRead(bool enable) {
  if (impl != nullptr && impl->reader) impl->reader->SetPrefetching(enable);
}

bool zuCacheFileInterface::endFileWrite() {
  const bool published = Run(impl, OnWriter{}, false, [&](nc::CacheWriter& writer) {
    return nc::FinishAndPublish(&writer, impl->error);
  });
  if (impl != nullptr) impl->writer.reset();
  return published;
}

unsigned int zuCacheFileInterface::numChannels() const {
  const nc::Description* const info = InfoOf(impl);
  return info != nullptr ? static_cast<unsigned int>(info->channels.size()) : 0;
}

bool zuCacheFileInterface::hasChannelByName(const char* channelName,
                                            unsigned int& channelIndex) const {
  const nc::Description* const info = InfoOf(impl);
  if (info == nullptr || channelName == nullptr) return false;
  const std::vector<nc::Channel>& channels = info->channels;
  const auto found = std::find_if(channels.begin(), channels.end(),
                                  [&](const nc::Channel& one) { return one.name == channelName; });
  if (found == channels.end()) return false;
  channelIndex = static_cast<unsigned int>(found - channels.begin());
  return true;
}

bool zuCacheFileInterface::channelName(unsigned int channelIndex, char** name) const {
  return Run(impl, OnChannel{channelIndex}, false, [&](nc::OpenCache& cache) {
    return HandOut(cache.Info().channels[channelIndex].name, name, impl->error);
  });
}

bool zuCacheFileInterface::channelInterpretation(unsigned int channelIndex,
                                                 char** interpretation) const {
  return Run(impl, OnChannel{channelIndex}, false, [&](nc::OpenCache& cache) {
    return HandOut(cache.Info().channels[channelIndex].interpretation, interpretation, impl->error);
  });
}

bool zuCacheFileInterface::channelDataType(unsigned int channelIndex,
                                           zuCacheData::zuCacheDataType& dataType) const {
  return Run(impl, OnChannel{channelIndex}, false, [&](nc::OpenCache& cache) {
    dataType = cache.Info().channels[channelIndex].type;
    return true;
  });
}

zuCacheFileInterface::cacheFileFormat zuCacheFileInterface::format() const {
  const nc::Description* const info = InfoOf(impl);
  return info != nullptr && info->isPerFrame ? eFilePerFrame : eSingleFile;
}

int zuCacheFileInterface::getTicksPerFrame() const {
  const nc::Description* const info = InfoOf(impl);
  return info != nullptr ? info->ticksPerFrame : 0;
}

unsigned int zuCacheFileInterface::compactEncoding() const {
  const nc::Description* const info = InfoOf(impl);
  return info != nullptr ? info->encoding : nc::eRaw;
}

bool zuCacheFileInterface::arraySizes(unsigned long long& arrayBytes,
                                      unsigned long long& storedBytes) const {
  return Run(impl, OnCache{}, false, [&](const nc::OpenCache&) {
    if (!impl->reader || impl->reader->Info().isPerFrame) {
      return impl->error.Set(Error::eRefused, "array sizes are told of a cache in one file");
    }
    std::uint64_t arrays = 0;
    std::uint64_t stored = 0;
    if (!impl->reader->SumArrays(&arrays, &stored, impl->error)) return false;
    arrayBytes = arrays;
    storedBytes = stored;
    return true;
  });
}

bool zuCacheFileInterface::exactFrameRate(KelFrameRate& rate) const {
  const nc::Description* const info = InfoOf(impl);
  if (info == nullptr || !info->exactRate.IsValid()) return false;
  rate = info->exactRate;
  return true;
}

bool zuCacheFileInterface::getChannelStartTime(unsigned int channelIndex, int& ticks) const {
  const nc::Extent extent = ExtentOf(impl, channelIndex);
  ticks = extent.first;
  return extent.count != 0;
}

bool zuCacheFileInterface::getChannelEndTime(unsigned int channelIndex, int& ticks) const {
  const nc::Extent extent = ExtentOf(impl, channelIndex);
  ticks = extent.last;
  return extent.count != 0;
}

unsigned int zuCacheFileInterface::getDataCount(unsigned int channelIndex) {
  return ExtentOf(impl, channelIndex).count;
}

bool zuCacheFileInterface::getDataTime(unsigned int channelIndex, unsigned int dataIndex,
                                       int& ticks) {
  return Run(impl, OnChannel{channelIndex}, false, [&](nc::OpenCache& cache) {
    nc::Times times;
    if (!cache.TimesOf(channelIndex, &times, impl->error)) return false;
    if (dataIndex >= times.Count()) {
      return impl->error.Set(Error::eRefused, "sample %u of %u", dataIndex, times.Count());
    }
    ticks = times.At(dataIndex);
    return true;
  });
}

bool zuCacheFileInterface::getNextTimeWithData(unsigned int channelIndex, int ticks,
                                               int& nextTicks) {
  return Run(impl, OnChannel{channelIndex}, false, [&](nc::OpenCache& cache) {
    nc::Times times;
    if (!cache.TimesOf(channelIndex, &times, impl->error)) return false;
    const auto next = nc::NextTime(times, ticks);
    if (!next) return impl->error.Set(Error::eRefused, "no sample after tick %d", ticks);
    nextTicks = *next;
    return true;
  });
}

bool zuCacheFileInterface::getNextTimeWithData(int ticks, int& nextTicks) {
  return Run(impl, OnCache{}, false, [&](const nc::OpenCache& cache) {
    std::optional<int> earliest;
    for (unsigned int i = 0; i < cache.Info().channels.size(); ++i) {
      int next = 0;
      if (getNextTimeWithData(i, ticks, next)) earliest = std::min(next, earliest.value_or(next));
    }
    if (!earliest) return impl->error.Set(Error::eRefused, "no sample after tick %d", ticks);
    nextTicks = *earliest;
    return true;
  });
}

bool zuCacheFileInterface::isChannelSamplingRegular(unsigned int channelIndex) const {
  return Run(impl, OnChannel{channelIndex}, false,
             [&](nc::OpenCache& cache) { return nc::IsRegular(cache.ExtentOf(channelIndex)); });
}

bool zuCacheFileInterface::channelSamplingRate(unsigned int channelIndex, int& ticks) const {
  return Run(impl, OnChannel{channelIndex}, false, [&](nc::OpenCache& cache) {
    if (!nc::IsRegular(cache.ExtentOf(channelIndex))) {
      return impl->error.Set(Error::eRefused, "channel %u is sampled irregularly", channelIndex);
    }
    const std::uint32_t interval = nc::SamplingInterval(cache, channelIndex);
    if (interval > INT32_MAX) {
      return impl->error.Set(Error::eRefused, "an interval of %u ticks", interval);
    }
    ticks = static_cast<int>(interval);
    return true;
  });
}

bool zuCacheFileInterface::declaredInterval(unsigned int channelIndex,
                                            unsigned int& intervalTicks) const {
  return Run(impl, OnChannel{channelIndex}, false, [&](nc::OpenCache& cache) {
    intervalTicks = cache.Info().channels[channelIndex].interval;
    return true;
  });
}

bool zuCacheFileInterface::evenSpacing(unsigned int channelIndex, int ticksPerFrame,
                                       const KelFrameRate& exactRate, double& startFrame,
                                       double& framesPerSample) {
  return Run(impl, OnChannel{channelIndex}, false, [&](nc::OpenCache& cache) {
    nc::Times times;
    if (!cache.TimesOf(channelIndex, &times, impl->error)) return false;
    const double frame = nc::ExactTicks(ticksPerFrame, exactRate);
    const std::uint32_t interval = nc::SamplingInterval(cache, channelIndex);
    const auto even = frame > 0 ? nc::FindEvenSpacing(times, frame, interval) : std::nullopt;
    if (!even) {
      return impl->error.Set(Error::eRefused, "channel %u is not evenly spaced", channelIndex);
    }
    startFrame = even->start;
    framesPerSample = even->interval;
    return true;
  });
}

bool zuCacheFileInterface::getArrayLengthAtTime(unsigned int channelIndex, int ticks,
                                                unsigned int& elementCount) {
  return Run(impl, OnChannel{channelIndex}, false, [&](nc::OpenCache& cache) {
    const nc::SampleEntry* const found = impl->FindSampleAt(cache, channelIndex, ticks);
    if (found == nullptr) return false;
    elementCount = found->count;
    return true;
  });
}

bool zuCacheFileInterface::getArrayDataAtTime(unsigned int channelIndex, int ticks, void*& data,
                                              unsigned int& elementCount) {
  return Run(impl, OnChannel{channelIndex}, false, [&](nc::OpenCache& cache) {
    const nc::SampleEntry* const found = impl->FindSampleAt(cache, channelIndex, ticks);
    if (found == nullptr) return false;
    const nc::SampleEntry& entry = *found;
    if (entry.count > elementCount || (data == nullptr && elementCount != 0)) {
      return impl->error.Set(Error::eRefused, "%u elements at tick %d, room for %u", entry.count,
                             ticks, data != nullptr ? elementCount : 0);
    }
    if (!cache.Fetch(channelIndex, entry, ticks, data, impl->error)) return false;
    const std::size_t elementSize = nc::ElementSize(cache.Info().channels[channelIndex].type);
    const std::size_t rest = (elementCount - entry.count) * elementSize;
    if (rest != 0) std::memset(static_cast<char*>(data) + entry.count * elementSize, 0, rest);
    elementCount = entry.count;
    return true;
  });
}

bool zuCacheFileInterface::beginWriteAtTime(int ticks) {
  return Run(impl, OnWriter{}, false,
             [&](nc::CacheWriter& writer) { return writer.BeginBlock(ticks, impl->error); });
}

bool zuCacheFileInterface::addArrayData(unsigned int channelIndex, int ticks, void* data,
                                        unsigned int elementCount) {
  return Run(impl, OnWriter{}, false, [&](nc::CacheWriter& writer) {
    return writer.AddArray(channelIndex, ticks, data, elementCount, impl->error);
  });
}

bool zuCacheFileInterface::repeatArrayData(unsigned int channelIndex, int ticks,
                                           unsigned int ofChannel, int ofTicks) {
  return Run(impl, OnWriter{}, false, [&](nc::CacheWriter& writer) {
    return writer.AddRepeat(channelIndex, ticks, ofChannel, ofTicks, impl->error);
  });
}

bool zuCacheFileInterface::endWriteAtTime() {
  return Run(impl, OnWriter{}, false,
             [&](nc::CacheWriter& writer) { return writer.EndBlock(impl->error); });
}

unsigned int zuCacheFileInterface::getDataFileCount() const {
  const nc::OpenCache* const cache = impl != nullptr ? impl->Open() : nullptr;
  return cache != nullptr ? cache->Files().Count() + 1 : 0;
}

bool zuCacheFileInterface::getDataFilePath(unsigned int fileIndex, char** path) {
  return Run(impl, OnCache{}, false, [&](const nc::OpenCache& cache) {
    if (fileIndex == 0) return HandOut(impl->name.DescriptionPath(), path, impl->error);
    const nc::DataFiles files = cache.Files();
    if (fileIndex > files.Count()) {
      return impl->error.Set(Error::eRefused, "file %u of %u", fileIndex, files.Count() + 1);
    }
    files.Name(fileIndex - 1, &impl->text);
    impl->text.insert(0, impl->name.folder);
    return HandOut(impl->text, path, impl->error);
  });
}

void zuCacheFileInterface::discardWrite() {
  if (impl != nullptr && impl->writer) impl->writer->Discard();
}

const char* zuCacheFileInterface::errorString() const {
  return impl != nullptr ? impl->error.text() : "not enough memory";
}

}  // namespace kelsdk
