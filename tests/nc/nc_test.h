#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "backends/nc/element_type.h"
#include "backends/zuCacheFileInterface.h"
#include "host/KelMemory.h"
#include "tests/support/fixture.h"

namespace kelsdk::nc {

using Cache = zuCacheFileInterface;
using test::Bytes;

/// One array that a test writes and expects back.
struct Sample {
  unsigned int channel;
  int tick;
  Bytes array;
};

struct ChannelSpec {
  const char* name;
  EType type;
  unsigned int interval = 0;  ///< declared; none for 0
};

/// A cache to write: what to declare and what to write, in that order. Neighbours of one tick share
/// a time block.
struct CacheSpec {
  Cache::cacheFileFormat format = Cache::eSingleFile;
  const char* tag = "ncx";
  int ticksPerFrame = 250;
  KelFrameRate exactRate = {0, 0};
  unsigned int encoding = Cache::kCompactEncoding;
  std::vector<ChannelSpec> channels;
  std::vector<Sample> samples;
};

/// A layout of the data files and the form of their arrays.
struct Form {
  Cache::cacheFileFormat format;
  const char* tag;
  unsigned int encoding = Cache::kCompactEncoding;

  std::string Name() const {
    return tag + std::to_string(encoding) + (format != 0 ? " per frame " : " ");
  }
  CacheSpec Of(CacheSpec spec) const {
    spec.format = format;
    spec.tag = tag;
    spec.encoding = encoding;
    return spec;
  }
};

inline constexpr Form kForms[] = {{Cache::eSingleFile, "ncx"},
                                  {Cache::eSingleFile, "ncc"},
                                  {Cache::eSingleFile, "ncc", Cache::kFirstCompactEncoding},
                                  {Cache::eFilePerFrame, "ncx"},
                                  {Cache::eFilePerFrame, "ncc"}};

/// An array of something smooth, so that it compresses, that moves a little from seed to seed.
inline Bytes MakeArray(EType type, std::size_t elements, int seed) {
  const bool isWide =
      type == zuCacheData::eNCDoubleArray || type == zuCacheData::eNCDoubleVectorArray;
  const std::size_t width = isWide ? sizeof(double) : sizeof(float);
  Bytes bytes(elements * ElementSize(type));
  for (std::size_t at = 0; at < bytes.size(); at += width) {
    const auto i = double(at / width);
    const double value = std::sin(0.01 * i) * 100 + (2 + std::sin(0.7 * i)) * 0.01 * seed;
    const auto narrow = static_cast<float>(value);
    std::memcpy(&bytes[at], isWide ? static_cast<const void*>(&value) : &narrow, width);
  }
  return bytes;
}

/// Declares and writes all of it but the end.
inline bool WriteOpen(Cache& cache, const std::string& folder, const char* base,
                      const CacheSpec& spec) {
  if (!cache.initFileWrite(folder.c_str(), base, spec.format, spec.tag, spec.ticksPerFrame,
                           spec.exactRate, spec.encoding)) {
    return false;
  }
  for (const ChannelSpec& channel : spec.channels) {
    unsigned int index = 0;
    if (!cache.addChannel(channel.name, "Points", channel.type, channel.interval, index)) {
      return false;
    }
  }
  std::optional<int> last;
  for (const auto& [channel, tick, array] : spec.samples) {
    if (std::exchange(last, tick) != tick && !cache.beginWriteAtTime(tick)) return false;
    const auto count =
        static_cast<unsigned int>(array.size() / ElementSize(spec.channels[channel].type));
    void* data = const_cast<std::uint8_t*>(array.data());
    if (!cache.addArrayData(channel, tick, data, count)) return false;
  }
  return cache.endWriteAtTime();
}

inline bool Write(const std::string& folder, const char* base, const CacheSpec& spec) {
  Cache cache;
  return WriteOpen(cache, folder, base, spec) && cache.endFileWrite();
}

/// The array at a time; nothing when the cache answers false.
inline std::optional<Bytes> ReadArray(Cache& cache, unsigned int channel, int tick) {
  unsigned int count = 0;
  EType type = zuCacheData::eNCUnknownData;
  if (!cache.channelDataType(channel, type) || !cache.getArrayLengthAtTime(channel, tick, count)) {
    return std::nullopt;
  }
  Bytes array(count * ElementSize(type) + 1);  // a place even for nothing
  void* data = array.data();
  if (!cache.getArrayDataAtTime(channel, tick, data, count)) return std::nullopt;
  array.resize(count * ElementSize(type));
  return array;
}

/// Every sample that a cache hands out, channel by channel, tick by tick.
using Contents = std::vector<std::map<int, Bytes>>;

/// What a spec amounts to: of two samples of one time the later.
inline Contents ContentsOf(const CacheSpec& spec) {
  Contents contents(spec.channels.size());
  for (const Sample& sample : spec.samples) contents[sample.channel][sample.tick] = sample.array;
  return contents;
}

/// All that can be read, time by time, the channels in another order at each; an unreadable sample
/// is left out.
inline Contents ReadAll(Cache& cache) {
  Contents contents(cache.numChannels());
  std::map<int, std::vector<unsigned int>> channelsAt;
  for (unsigned int channel = 0; channel < contents.size(); ++channel) {
    for (unsigned int i = 0; i < cache.getDataCount(channel); ++i) {
      int tick = 0;
      if (cache.getDataTime(channel, i, tick)) channelsAt[tick].push_back(channel);
    }
  }
  for (auto& [tick, channels] : channelsAt) {
    std::rotate(channels.begin(), channels.begin() + std::abs(tick) % 2, channels.end());
    for (const unsigned int channel : channels) {
      if (const auto array = ReadArray(cache, channel, tick)) contents[channel][tick] = *array;
    }
  }
  return contents;
}

inline std::optional<Contents> ReadCache(const std::string& folder, const char* base) {
  Cache cache;
  if (!cache.initFileRead(base, folder.c_str())) return std::nullopt;
  return ReadAll(cache);
}

/// Regular frames 0, 1, ... of one float-vector channel.
inline CacheSpec Frames(int frames, std::size_t points, int seed = 0) {
  CacheSpec spec;
  spec.channels = {{"P", zuCacheData::eNCFloatVectorArray}};
  for (int i = 0; i < frames; ++i) {
    spec.samples.push_back({0, i * spec.ticksPerFrame,
                            MakeArray(zuCacheData::eNCFloatVectorArray, points, seed + i + 1)});
  }
  return spec;
}

class NcTest : public test::FileTest {
 protected:
  std::string Folder() const { return folder_.path() + "/"; }

  std::string DataFile(const std::string& base, const char* tag) const {
    return folder_.File(base + "." + tag);
  }

  bool Open(Cache& cache, const char* base = "shot") const {
    return cache.initFileRead(base, Folder().c_str());
  }

  /// Whether a cache holds just what was written, and verifies.
  bool Holds(const std::string& base, const CacheSpec& spec) const {
    return ReadCache(Folder(), base.c_str()) == ContentsOf(spec) && Verifies(base.c_str());
  }

  testing::AssertionResult Verifies(const char* base) const {
    std::string said;
    const bool sound = Cache::verify(Folder().c_str(), base, test::AddLine, &said);
    return (sound ? testing::AssertionSuccess() : testing::AssertionFailure()) << said;
  }
};

}  // namespace kelsdk::nc
