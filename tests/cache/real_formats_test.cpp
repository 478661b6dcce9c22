// Whole caches through the object: written, read back by another object, on threads of their own.
#include <cmath>
#include <thread>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

constexpr unsigned int kElements = 5;
// One of every type that holds data, and one whose samples are not evenly spaced.
const std::vector<int> kChannels = {2, 3, 4, 5, 6, 6};
constexpr size_t kIrregular = 5;

struct CacheLayout {
  KelCache::ENCFileCount files;
  KelCache::ENCBinaryFormat data;
  double rate = 24;

  int TicksPerFrame() const { return static_cast<int>(6000 / rate); }
};

// Values that show a lost bit: fractions that no float holds, and different at every place.
template <typename Value>
std::vector<Value> ValuesAt(size_t channel, int tick) {
  const auto type = static_cast<zuCacheData::zuCacheDataType>(kChannels[channel]);
  std::vector<Value> values(kElements * GetTypeLength(type));
  for (size_t i = 0; i < values.size(); ++i) {
    const double value = std::sin(double(channel + 1) * 1000 + tick * 0.01 + double(i)) * 1000;
    values[i] = static_cast<Value>(value);
  }
  return values;
}

// Calls `body(channel, tick, values)` for every sample that a cache is to hold, in the order of the
// ticks, with values of the channel's own type; false as soon as it is.
template <typename Begin, typename Body, typename End>
bool ForEachSample(const CacheLayout& layout, const Begin& begin, const Body& body,
                   const End& end) {
  const int perFrame = layout.TicksPerFrame();
  for (const int tick : {-3 * perFrame, -2 * perFrame, -perFrame, 0, perFrame, 2 * perFrame,
                         2 * perFrame + perFrame / 3}) {
    KelTime time(tick * kTick);
    if (!begin(time)) return false;
    for (size_t channel = 0; channel < kChannels.size(); ++channel) {
      if (tick % perFrame == 0 ? channel == kIrregular && tick < 0 : channel != kIrregular)
        continue;
      const int type = kChannels[channel];
      const int form = type == KelCache::eNCInt32Array ? 2 : type < KelCache::eNCInt32Array ? 0 : 1;
      const bool done = WithForm(form, [&](auto value) {
        return body(int(channel), time, ValuesAt<decltype(value)>(channel, tick));
      });
      if (!done) return false;
    }
    if (!end()) return false;
  }
  return true;
}

bool WriteCache(const std::string& path, const CacheLayout& layout) {
  CacheObject cache;
  return cache.BeginNC(path, kChannels, layout.rate, layout.files, layout.data) &&
         ForEachSample(
             layout, [&](KelTime& time) { return cache->BeginWriteAt(time, nullptr); },
             [&](int channel, KelTime& time, auto values) {
               return cache->Write(channel, time, values.data(), kElements, nullptr);
             },
             [&] { return cache->EndWriteAt(nullptr); }) &&
         cache->CloseFile(nullptr);
}

// Every sample of every channel, bit for bit, and what the catalogue says of it.
bool CacheReadsBack(const std::string& path, const CacheLayout& layout) {
  CacheObject cache(KelCache::eNCFormat, path);
  auto files = KelCache::eNCSingleFile;
  bool same = cache->OpenFileForRead(nullptr) && cache->GetCacheType(files, nullptr) &&
              files == layout.files && cache->GetChannelCount(nullptr) == int(kChannels.size()) &&
              cache->GetSamplingFrameRate(nullptr) == 6000.0 / layout.TicksPerFrame() &&
              cache->GetDataCount(0, nullptr) == 6 && cache->GetDataCount(kIrregular, nullptr) == 4;
  const auto always = [](auto&&...) { return true; };
  return same &&
         ForEachSample(
             layout, always,
             [&](int channel, KelTime& time, auto expected) {
               auto values = expected;
               std::fill(values.begin(), values.end(), typename decltype(values)::value_type(-1));
               float* fetched = nullptr;
               unsigned int length = 0;
               return cache->Read(channel, time, values.data(), kElements, nullptr) &&
                      values == expected &&
                      cache->Read(&fetched, length, time, unsigned(channel)) &&
                      std::vector<float>(values.begin(), values.end()) ==
                          std::vector<float>(fetched, fetched + length);
             },
             always);
}

using RealFormats = FileTest;

TEST_F(RealFormats, WhatOneObjectWritesAnotherReads) {
  const std::string path = folder_.File("six channels.xml");
  for (const auto files : {KelCache::eNCSingleFile, KelCache::eNCFilePerFrame}) {
    for (const auto data : {KelCache::eNCBinaryC, KelCache::eNCBinaryX}) {
      for (const double rate : {24.0, 29.97, 60.0}) {
        EXPECT_TRUE(WriteCache(path, {files, data, rate})) << files << data << rate;
        EXPECT_TRUE(CacheReadsBack(path, {files, data, rate})) << files << data << rate;
      }
    }
  }
}

// Objects on threads of their own share nothing: the thread sanitizer has the last word.
TEST_F(RealFormats, SeparateObjectsOnSeparateThreads) {
  const std::string path = folder_.File("shared.xml");
  const CacheLayout shared{KelCache::eNCSingleFile, KelCache::eNCBinaryC};
  ASSERT_TRUE(WriteCache(path, shared));
  bool passed[8] = {};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      const std::string mine = folder_.File("own" + std::to_string(i) + ".xml");
      const CacheLayout own{i % 2 == 0 ? KelCache::eNCSingleFile : KelCache::eNCFilePerFrame,
                            i % 3 == 0 ? KelCache::eNCBinaryC : KelCache::eNCBinaryX};
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

}  // namespace
}  // namespace kelsdk::test
