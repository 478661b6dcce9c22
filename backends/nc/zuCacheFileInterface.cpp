#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "backends/io/guard.h"
#include "backends/nc/even_spacing.h"
#include "backends/nc/publish.h"
#include "backends/nc/reader.h"
#include "backends/nc/writer.h"
#include "backends/zuCacheFileInterface.h"
#include "host/KelMemory.h"

namespace kelsdk {

using io::Error;

struct zuCacheFileInterface::Impl {
  std::optional<nc::CacheReader> reader;
  std::optional<nc::CacheWriter> writer;
  nc::CacheName name;
  std::string text;  // a name being made; its memory is reused
  Error error;

  nc::OpenCache* Open() {
    if (reader) return &*reader;
    return writer ? &*writer : nullptr;
  }

  /// The open cache when it has that channel, else null with the error set.
  nc::OpenCache* WithChannel(unsigned int channel) {
    nc::OpenCache* const cache = Open();
    if (cache == nullptr) {
      error.Set(Error::eRefused, "no cache is open");
    } else if (channel >= cache->Info().channels.size()) {
      error.Set(Error::eRefused, "channel %u of %zu", channel, cache->Info().channels.size());
    } else {
      return cache;
    }
    return nullptr;
  }

  nc::CacheWriter* Writing() {
    if (writer) return &*writer;
    error.Set(Error::eRefused, "no cache is open for writing");
    return nullptr;
  }
};

namespace {

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

// Runs the body of an operation on an object that may have had no memory for its record.
template <typename Result, typename Impl, typename Body>
Result Run(Impl* impl, Result onFailure, Body&& body) {
  if (impl == nullptr) return onFailure;
  return io::Guarded(impl->error, onFailure, std::forward<Body>(body));
}

}  // namespace

zuCacheFileInterface::zuCacheFileInterface() : impl(new (std::nothrow) Impl) {}

zuCacheFileInterface::~zuCacheFileInterface() {
  delete impl;
}

bool zuCacheFileInterface::initFileRead(const char* baseName, const char* folder) {
  return Run(impl, false, [&] {
    if (impl->Open() != nullptr) return impl->error.Set(Error::eRefused, "a cache is open already");
    if (!nc::MakeCacheName(folder, baseName, &impl->name, impl->error)) return false;
    nc::CacheReader& reader = impl->reader.emplace();
    const bool open =
        io::Guarded(impl->error, false, [&] { return reader.Open(impl->name, impl->error); });
    if (!open) impl->reader.reset();
    return open;
  });
}

bool zuCacheFileInterface::initFileWrite(const char* folder, const char* baseName,
                                         cacheFileFormat format, const char* dataFileTag,
                                         int ticksPerFrame) {
  return initFileWrite(folder, baseName, format, dataFileTag, ticksPerFrame, {0, 0});
}

bool zuCacheFileInterface::initFileWrite(const char* folder, const char* baseName,
                                         cacheFileFormat format, const char* dataFileTag,
                                         int ticksPerFrame, const KelFrameRate& exactRate) {
  return Run(impl, false, [&] {
    if (impl->Open() != nullptr) return impl->error.Set(Error::eRefused, "a cache is open already");
    if (!nc::MakeCacheName(folder, baseName, &impl->name, impl->error)) return false;
    nc::CacheWriter& writer = impl->writer.emplace();
    const bool open = io::Guarded(impl->error, false, [&] {
      nc::FileLayout layout;
      return nc::MakeLayout(format == eFilePerFrame, dataFileTag, ticksPerFrame, exactRate, &layout,
                            impl->error) &&
             writer.Begin(impl->name, layout, impl->error);
    });
    if (!open) impl->writer.reset();
    return open;
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
  return Run(impl, false, [&] {
    nc::CacheWriter* const writer = impl->Writing();
    std::uint32_t index = 0;
    if (writer == nullptr || !writer->AddChannel(channelName, interpretation, dataType,
                                                 intervalTicks, &index, impl->error)) {
      return false;
    }
    channelIndex = index;
    return true;
  });
}

void zuCacheFileInterface::setOptimizeMultiChannelRead(bool enable) {
  if (impl != nullptr && impl->reader) impl->reader->SetPrefetching(enable);
}

bool zuCacheFileInterface::endFileWrite() {
  return Run(impl, false, [&] {
    nc::CacheWriter* const writer = impl->Writing();
    if (writer == nullptr) return false;
    const bool published =
        io::Guarded(impl->error, false, [&] { return nc::FinishAndPublish(writer, impl->error); });
    impl->writer.reset();
    return published;
  });
}

unsigned int zuCacheFileInterface::numChannels() const {
  nc::OpenCache* const cache = impl != nullptr ? impl->Open() : nullptr;
  return cache != nullptr ? static_cast<unsigned int>(cache->Info().channels.size()) : 0;
}

bool zuCacheFileInterface::hasChannelByName(const char* channelName,
                                            unsigned int& channelIndex) const {
  nc::OpenCache* const cache = impl != nullptr ? impl->Open() : nullptr;
  if (cache == nullptr || channelName == nullptr) return false;
  const std::vector<nc::Channel>& channels = cache->Info().channels;
  const auto found = std::find_if(channels.begin(), channels.end(),
                                  [&](const nc::Channel& one) { return one.name == channelName; });
  if (found == channels.end()) return false;
  channelIndex = static_cast<unsigned int>(found - channels.begin());
  return true;
}

bool zuCacheFileInterface::channelName(unsigned int channelIndex, char** name) const {
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    return cache != nullptr &&
           HandOut(cache->Info().channels[channelIndex].name, name, impl->error);
  });
}

bool zuCacheFileInterface::channelInterpretation(unsigned int channelIndex,
                                                 char** interpretation) const {
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    return cache != nullptr && HandOut(cache->Info().channels[channelIndex].interpretation,
                                       interpretation, impl->error);
  });
}

bool zuCacheFileInterface::channelDataType(unsigned int channelIndex,
                                           zuCacheData::zuCacheDataType& dataType) const {
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    if (cache == nullptr) return false;
    dataType = cache->Info().channels[channelIndex].type;
    return true;
  });
}

zuCacheFileInterface::cacheFileFormat zuCacheFileInterface::format() const {
  nc::OpenCache* const cache = impl != nullptr ? impl->Open() : nullptr;
  return cache != nullptr && cache->Info().isPerFrame ? eFilePerFrame : eSingleFile;
}

int zuCacheFileInterface::getTicksPerFrame() const {
  nc::OpenCache* const cache = impl != nullptr ? impl->Open() : nullptr;
  return cache != nullptr ? cache->Info().ticksPerFrame : 0;
}

bool zuCacheFileInterface::exactFrameRate(KelFrameRate& rate) const {
  nc::OpenCache* const cache = impl != nullptr ? impl->Open() : nullptr;
  if (cache == nullptr || !cache->Info().exactRate.IsValid()) return false;
  rate = cache->Info().exactRate;
  return true;
}

bool zuCacheFileInterface::getChannelStartTime(unsigned int channelIndex, int& ticks) const {
  ticks = 0;
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    if (cache == nullptr) return false;
    const nc::Extent extent = cache->ExtentOf(channelIndex);
    ticks = extent.first;
    return extent.count != 0;
  });
}

bool zuCacheFileInterface::getChannelEndTime(unsigned int channelIndex, int& ticks) const {
  ticks = 0;
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    if (cache == nullptr) return false;
    const nc::Extent extent = cache->ExtentOf(channelIndex);
    ticks = extent.last;
    return extent.count != 0;
  });
}

unsigned int zuCacheFileInterface::getDataCount(unsigned int channelIndex) {
  return Run(impl, 0u, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    return cache != nullptr ? cache->ExtentOf(channelIndex).count : 0u;
  });
}

bool zuCacheFileInterface::getDataTime(unsigned int channelIndex, unsigned int dataIndex,
                                       int& ticks) {
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    nc::Times times;
    if (cache == nullptr || !cache->TimesOf(channelIndex, &times, impl->error)) return false;
    if (dataIndex >= times.Count()) {
      return impl->error.Set(Error::eRefused, "sample %u of %u", dataIndex, times.Count());
    }
    ticks = times.At(dataIndex);
    return true;
  });
}

bool zuCacheFileInterface::getNextTimeWithData(unsigned int channelIndex, int ticks,
                                               int& nextTicks) {
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    nc::Times times;
    if (cache == nullptr || !cache->TimesOf(channelIndex, &times, impl->error)) return false;
    const auto next = nc::NextTime(times, ticks);
    if (!next) return impl->error.Set(Error::eRefused, "no sample after tick %d", ticks);
    nextTicks = *next;
    return true;
  });
}

bool zuCacheFileInterface::getNextTimeWithData(int ticks, int& nextTicks) {
  return Run(impl, false, [&] {
    std::optional<int> earliest;
    for (unsigned int i = 0; i < numChannels(); ++i) {
      int next = 0;
      if (getNextTimeWithData(i, ticks, next)) earliest = std::min(next, earliest.value_or(next));
    }
    if (!earliest) return impl->error.Set(Error::eRefused, "no sample after tick %d", ticks);
    nextTicks = *earliest;
    return true;
  });
}

bool zuCacheFileInterface::isChannelSamplingRegular(unsigned int channelIndex) const {
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    return cache != nullptr && nc::IsRegular(cache->ExtentOf(channelIndex));
  });
}

bool zuCacheFileInterface::channelSamplingRate(unsigned int channelIndex, int& ticks) const {
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    if (cache == nullptr) return false;
    if (!nc::IsRegular(cache->ExtentOf(channelIndex))) {
      return impl->error.Set(Error::eRefused, "channel %u is sampled irregularly", channelIndex);
    }
    const std::uint32_t interval = nc::SamplingInterval(*cache, channelIndex);
    if (interval > INT32_MAX) {
      return impl->error.Set(Error::eRefused, "an interval of %u ticks", interval);
    }
    ticks = static_cast<int>(interval);
    return true;
  });
}

bool zuCacheFileInterface::declaredInterval(unsigned int channelIndex,
                                            unsigned int& intervalTicks) const {
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    if (cache == nullptr) return false;
    intervalTicks = cache->Info().channels[channelIndex].interval;
    return true;
  });
}

bool zuCacheFileInterface::evenSpacing(unsigned int channelIndex, int ticksPerFrame,
                                       const KelFrameRate& exactRate, double& startFrame,
                                       double& framesPerSample) {
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    nc::Times times;
    if (cache == nullptr || !cache->TimesOf(channelIndex, &times, impl->error)) return false;
    const double frame = nc::ExactTicks(ticksPerFrame, exactRate);
    const std::uint32_t interval = nc::SamplingInterval(*cache, channelIndex);
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
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    nc::SampleEntry entry;
    if (cache == nullptr || !nc::FindSampleAt(*cache, channelIndex, ticks, &entry, impl->error)) {
      return false;
    }
    elementCount = entry.count;
    return true;
  });
}

bool zuCacheFileInterface::getArrayDataAtTime(unsigned int channelIndex, int ticks, void*& data,
                                              unsigned int& elementCount) {
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->WithChannel(channelIndex);
    nc::SampleEntry entry;
    if (cache == nullptr || !nc::FindSampleAt(*cache, channelIndex, ticks, &entry, impl->error)) {
      return false;
    }
    if (entry.count > elementCount || (data == nullptr && elementCount != 0)) {
      return impl->error.Set(Error::eRefused, "%u elements at tick %d, room for %u", entry.count,
                             ticks, data != nullptr ? elementCount : 0);
    }
    if (!cache->Fetch(channelIndex, entry, ticks, data, impl->error)) return false;
    const std::size_t elementSize = nc::ElementSize(cache->Info().channels[channelIndex].type);
    const std::size_t rest = (elementCount - entry.count) * elementSize;
    if (rest != 0) std::memset(static_cast<char*>(data) + entry.count * elementSize, 0, rest);
    elementCount = entry.count;
    return true;
  });
}

bool zuCacheFileInterface::beginWriteAtTime(int ticks) {
  return Run(impl, false, [&] {
    nc::CacheWriter* const writer = impl->Writing();
    return writer != nullptr && writer->BeginBlock(ticks, impl->error);
  });
}

bool zuCacheFileInterface::addArrayData(unsigned int channelIndex, int ticks, void* data,
                                        unsigned int elementCount) {
  return Run(impl, false, [&] {
    nc::CacheWriter* const writer = impl->Writing();
    return writer != nullptr &&
           writer->AddArray(channelIndex, ticks, data, elementCount, impl->error);
  });
}

bool zuCacheFileInterface::repeatArrayData(unsigned int channelIndex, int ticks,
                                           unsigned int ofChannel, int ofTicks) {
  return Run(impl, false, [&] {
    nc::CacheWriter* const writer = impl->Writing();
    return writer != nullptr &&
           writer->AddRepeat(channelIndex, ticks, ofChannel, ofTicks, impl->error);
  });
}

bool zuCacheFileInterface::endWriteAtTime() {
  return Run(impl, false, [&] {
    nc::CacheWriter* const writer = impl->Writing();
    return writer != nullptr && writer->EndBlock(impl->error);
  });
}

unsigned int zuCacheFileInterface::getDataFileCount() const {
  nc::OpenCache* const cache = impl != nullptr ? impl->Open() : nullptr;
  return cache != nullptr ? cache->Files().Count() + 1 : 0;
}

bool zuCacheFileInterface::getDataFilePath(unsigned int fileIndex, char** path) {
  return Run(impl, false, [&] {
    nc::OpenCache* const cache = impl->Open();
    if (cache == nullptr) return impl->error.Set(Error::eRefused, "no cache is open");
    if (fileIndex == 0) return HandOut(impl->name.DescriptionPath(), path, impl->error);
    const nc::DataFiles files = cache->Files();
    if (fileIndex > files.Count()) {
      return impl->error.Set(Error::eRefused, "file %u of %u", fileIndex, getDataFileCount());
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
