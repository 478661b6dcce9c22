// The object with its real back-ends: what one process writes, another reads.
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <thread>

#include "cache/KelCache.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {
namespace {

constexpr long long kTick = 7697693;
constexpr unsigned int kElements = 5;

struct ChannelCase {
  const char* name;
  KelCache::ENCDataType type;
  bool irregular;
};

// One of every type that holds data, and one whose samples are not evenly spaced.
constexpr ChannelCase kChannels[] = {
    {"d", KelCache::eNCDoubleArray, false},       {"dv", KelCache::eNCDoubleVectorArray, false},
    {"i", KelCache::eNCInt32Array, false},        {"f", KelCache::eNCFloatArray, false},
    {"fv", KelCache::eNCFloatVectorArray, false}, {"odd", KelCache::eNCFloatVectorArray, true},
};

// Values that show a lost bit: fractions that no float holds, and different at every place.
double ValueAt(size_t channel, int tick, size_t i) {
  return std::sin(double(channel + 1) * 1000 + tick * 0.01 + double(i)) * 1000;
}

class CacheObject {
 public:
  CacheObject(KelCache::EFileFormat format, const std::string& path)
      : manager_(KelManager::Create()), cache_(KelCache::Create(manager_, "cache")) {
    cache_->SetCacheFileFormat(format, nullptr);
    cache_->SetCacheFileName("", path.c_str(), nullptr);
  }
  ~CacheObject() { manager_->Destroy(); }
  CacheObject(const CacheObject&) = delete;
  CacheObject& operator=(const CacheObject&) = delete;
  KelCache* operator->() { return cache_; }

 private:
  KelManager* manager_;
  KelCache* cache_;
};

template <typename Value>
bool Write(KelCache* cache, int channel, int tick, size_t count, unsigned int elements) {
  std::vector<Value> values(count);
  for (size_t i = 0; i < count; ++i) {
    values[i] = static_cast<Value>(ValueAt(static_cast<size_t>(channel), tick, i));
  }
  KelTime time(tick * kTick);
  return cache->Write(channel, time, values.data(), elements, nullptr);
}

template <typename Value>
bool ReadsBack(KelCache* cache, int channel, int tick, size_t count, unsigned int elements) {
  std::vector<Value> values(count, Value(-1));
  KelTime time(tick * kTick);
  if (!cache->Read(channel, time, values.data(), elements, nullptr)) return false;
  for (size_t i = 0; i < count; ++i) {
    if (values[i] != static_cast<Value>(ValueAt(static_cast<size_t>(channel), tick, i)))
      return false;
  }
  return true;
}

size_t CountOf(KelCache::ENCDataType type) {
  return size_t{kElements} * GetTypeLength(static_cast<zuCacheData::zuCacheDataType>(type));
}

// The ticks of a cache: frames from -3 on, and half frames for the channel that is not regular.
std::vector<int> TicksOfCache(int ticksPerFrame) {
  std::vector<int> ticks;
  for (int frame = -3; frame < 4; ++frame) ticks.push_back(frame * ticksPerFrame);
  ticks.push_back(2 * ticksPerFrame + ticksPerFrame / 3);
  return ticks;
}

bool HasSample(const ChannelCase& channel, int tick, int ticksPerFrame) {
  return tick % ticksPerFrame == 0 ? !channel.irregular || tick >= 0 : channel.irregular;
}

struct NCCase {
  KelCache::ENCFileCount files;
  KelCache::ENCBinaryFormat tag;
  double rate;
};

bool WriteCache(const std::string& path, const NCCase& c) {
  CacheObject cache(KelCache::eNCFormat, path);
  if (!cache->OpenFileForWrite(c.files, c.rate, kChannels[0].name, c.tag, kChannels[0].type, "in",
                               nullptr)) {
    return false;
  }
  unsigned int index = 0;
  for (size_t i = 1; i < std::size(kChannels); ++i) {
    if (!cache->AddChannel(kChannels[i].name, kChannels[i].type, "in", index, nullptr))
      return false;
  }
  const int ticksPerFrame = static_cast<int>(6000 / c.rate);
  for (const int tick : TicksOfCache(ticksPerFrame)) {
    KelTime time(tick * kTick);
    bool written = cache->BeginWriteAt(time, nullptr);
    for (int channel = 0; channel < int(std::size(kChannels)); ++channel) {
      const ChannelCase& kind = kChannels[channel];
      if (!HasSample(kind, tick, ticksPerFrame)) continue;
      const size_t count = CountOf(kind.type);
      if (kind.type == KelCache::eNCInt32Array) {
        written = written && Write<int>(cache.operator->(), channel, tick, count, kElements);
      } else if (GetTypeIsFloat(static_cast<zuCacheData::zuCacheDataType>(kind.type))) {
        written = written && Write<float>(cache.operator->(), channel, tick, count, kElements);
      } else {
        written = written && Write<double>(cache.operator->(), channel, tick, count, kElements);
      }
    }
    if (!written || !cache->EndWriteAt(nullptr)) return false;
  }
  return cache->CloseFile(nullptr);
}

// Every sample of every channel, bit for bit, and what the catalogue and the times say of it.
bool CacheReadsBack(const std::string& path, const NCCase& c) {
  CacheObject cache(KelCache::eNCFormat, path);
  if (!cache->OpenFileForRead(nullptr)) return false;
  const int ticksPerFrame = static_cast<int>(6000 / c.rate);
  auto files = KelCache::eNCSingleFile;
  if (!cache->GetCacheType(files, nullptr) || files != c.files) return false;
  if (cache->GetChannelCount(nullptr) != int(std::size(kChannels))) return false;
  if (cache->GetSamplingFrameRate(nullptr) != 6000.0 / ticksPerFrame) return false;
  bool same = true;
  for (int channel = 0; channel < int(std::size(kChannels)); ++channel) {
    const ChannelCase& kind = kChannels[channel];
    same = same && cache->GetChannelIndex(kind.name, nullptr) == channel;
    auto sampling = KelCache::eNCSamplingRegular;
    same = same && cache->GetChannelSamplingType(channel, sampling, nullptr) &&
           (sampling == KelCache::eNCSamplingIrregular) == kind.irregular;
    unsigned int samples = 0;
    for (const int tick : TicksOfCache(ticksPerFrame)) {
      if (!HasSample(kind, tick, ticksPerFrame)) continue;
      ++samples;
      const size_t count = CountOf(kind.type);
      if (kind.type == KelCache::eNCInt32Array) {
        same = same && ReadsBack<int>(cache.operator->(), channel, tick, count, kElements);
      } else if (GetTypeIsFloat(static_cast<zuCacheData::zuCacheDataType>(kind.type))) {
        same = same && ReadsBack<float>(cache.operator->(), channel, tick, count, kElements);
      } else {
        same = same && ReadsBack<double>(cache.operator->(), channel, tick, count, kElements);
      }
      float* fetched = nullptr;
      unsigned int length = 0;
      same = same &&
             cache->Read(&fetched, length, KelTime(tick * kTick), static_cast<unsigned>(channel)) &&
             length == count;
    }
    same = same && cache->GetDataCount(channel, nullptr) == samples;
  }
  cache->CloseFile(nullptr);
  return same;
}

using RealFormats = FileTest;

TEST_F(RealFormats, WhatOneProcessWritesAnotherReads) {
  const std::string path = folder_.File("six channels.xml");
  for (const auto files : {KelCache::eNCSingleFile, KelCache::eNCFilePerFrame}) {
    for (const auto tag : {KelCache::eNCBinaryC, KelCache::eNCBinaryX}) {
      for (const double rate : {24.0, 25.0, 30.0, 29.97, 60.0}) {
        SCOPED_TRACE(rate);
        const pid_t writer = ::fork();
        if (writer == 0) ::_exit(WriteCache(path, {files, tag, rate}) ? 0 : 1);
        int result = 1;
        ::waitpid(writer, &result, 0);
        ASSERT_EQ(result, 0);
        EXPECT_TRUE(CacheReadsBack(path, {files, tag, rate}));
      }
    }
  }
}

TEST_F(RealFormats, AnArchiveThroughTheObject) {
  CacheObject cache(KelCache::eAlembicFormat, TestData("abc/mesh_24fps.abc"));
  KelStatus status;
  ASSERT_TRUE(cache->OpenFileForRead(&status)) << status.GetErrorString();
  EXPECT_EQ(cache->GetChannelIndex("/wave", nullptr), 0);
  EXPECT_EQ(cache->GetChannelIndex("/none", nullptr), -1);
  KelString name;
  EXPECT_TRUE(cache->GetChannelName(0, name, nullptr));
  EXPECT_STREQ(name, "/wave/.geom/P");
  KelTime start;
  KelTime end;
  EXPECT_TRUE(cache->GetAnimationRange(0, start, end, nullptr));
  EXPECT_EQ(end.GetFrameCount(KelTime::eFrames24), 23);
  float* fetched = nullptr;
  unsigned int length = 0;
  ASSERT_TRUE(cache->Read(&fetched, length, end, 0));
  EXPECT_EQ(length, 42U * 3);
  float values[42 * 3];
  EXPECT_TRUE(cache->Read(0, end, values, 42, &status));
  EXPECT_TRUE(std::equal(values, values + length, fetched));
  cache->SetCacheFileName("", folder_.File("out.abc").c_str(), nullptr);
  cache->CloseFile(nullptr);
  EXPECT_FALSE(cache->OpenFileForWrite(0, 24, 1, 1, &status));
  EXPECT_STREQ(status.GetErrorString(), "Alembic Cache file write is not supported");
}

// Objects on threads of their own share nothing: the thread sanitizer has the last word.
TEST_F(RealFormats, SeparateObjectsOnSeparateThreads) {
  const std::string path = folder_.File("shared.xml");
  const NCCase shared{KelCache::eNCSingleFile, KelCache::eNCBinaryC, 24};
  ASSERT_TRUE(WriteCache(path, shared));
  bool passed[8] = {};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      const std::string mine = folder_.File("own" + std::to_string(i) + ".xml");
      const NCCase own{i % 2 == 0 ? KelCache::eNCSingleFile : KelCache::eNCFilePerFrame,
                       i % 3 == 0 ? KelCache::eNCBinaryC : KelCache::eNCBinaryX, 24};
      bool good = true;
      for (int round = 0; round < 5; ++round) {
        good = good && CacheReadsBack(path, shared) && WriteCache(mine, own) &&
               CacheReadsBack(mine, own);
        CacheObject pc2(KelCache::ePC2Format, TestData("pc2/arm_tube.pc2"));
        CacheObject abc(KelCache::eAlembicFormat, TestData("abc/mesh_24fps.abc"));
        float* values = nullptr;
        unsigned int length = 0;
        good = good && pc2->OpenFileForRead(nullptr) && abc->OpenFileForRead(nullptr) &&
               pc2->Read(&values, length, KelTime::FromFrame(round), 0) &&
               abc->Read(&values, length, KelTime::FromFrame(round), 0);
      }
      passed[i] = good;
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const bool good : passed) EXPECT_TRUE(good);
}

// The conversions through the object: beside the source, whole or not at all.
TEST_F(RealFormats, ConvertsBothWays) {
  const std::string path = folder_.File("shot.pc2");
  const Bytes original = ReadBytes(TestData("pc2/arm_tube.pc2"));
  for (const auto files : {KelCache::eNCSingleFile, KelCache::eNCFilePerFrame}) {
    for (const auto tag : {KelCache::eNCBinaryC, KelCache::eNCBinaryX}) {
      WriteBytes(path, original);
      KelStatus status;
      CacheObject pc2(KelCache::ePC2Format, path);
      EXPECT_TRUE(pc2->ConvertFromPC2ToNC(files, 24, tag, &status)) << status.GetErrorString();
      ::unlink(path.c_str());
      CacheObject nc(KelCache::eNCFormat, folder_.File("shot.xml"));
      EXPECT_TRUE(nc->ConvertFromNCToPC2(24, 0, &status)) << status.GetErrorString();
      EXPECT_EQ(ReadBytes(path), original);
      EXPECT_FALSE(nc->ConvertFromNCToPC2(24, 1, &status));
      EXPECT_STREQ(status.GetErrorString(), "Conversion from NC to PC2 failed");
      EXPECT_FALSE(pc2->ConvertFromPC2ToNC(files, 10000, tag, &status)) << "0 ticks per frame";
      EXPECT_STREQ(status.GetErrorString(), "Conversion from PC2 to NC failed");
    }
  }
}

}  // namespace
}  // namespace kelsdk::test
