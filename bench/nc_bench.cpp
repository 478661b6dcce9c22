// NC caches in the page cache, against bare system calls over the same bytes.
//
//   fetch_float    every frame of a float-vector channel, unified fetch  vs  a positioned-read loop
//   fetch_double   the same of a double-vector channel    vs  positioned read + conversion to float
//   write          every array, closing left out (close_ms) vs  positioned writes of the same bytes
//   channels/N     eight channels of N floats at each time, groups on    vs  groups off
//   one_channel/N  one of the eight alone, groups on                     vs  groups off
//   open/...       opening a cache of that many samples; B/sample: memory once an array was read
//
// `ratio` is baseline time / our time. The page cache serves both sides; the reads of fetch verify
// a checksum of every byte, the baseline's look at none.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "backends/zuCacheFileInterface.h"
#include "bench/ratio.h"
#include "cache/KelCache.h"

namespace {

using kelsdk::KelCache;
using kelsdk::KelManager;
using kelsdk::KelTime;
using kelsdk::zuCacheData;
using Library = kelsdk::zuCacheFileInterface;

constexpr int kTicksPerFrame = 250;

void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "benchmark: %s\n", what);
  std::abort();
}

class Folder {
 public:
  Folder() : path_("/tmp/kelcache-bench-" + std::to_string(::getpid()) + "/") {
    std::filesystem::create_directory(path_);
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  const std::string& path() const { return path_; }
  std::string File(const char* name) const { return path_ + name; }

 private:
  std::string path_;
};

// Where the arrays of a cache of one channel "P" of "Points" stand, in bytes: behind the file's
// header, the channel's record and the array's header.
struct ArrayPlaces {
  size_t size;
  off_t At(unsigned int frame) const {
    const size_t stride = 64 + (size + 63) / 64 * 64 + 64;
    return static_cast<off_t>(64 + 128 + 64 + stride * frame);
  }
};

void WriteFrames(const Folder& folder, zuCacheData::zuCacheDataType type, void* array,
                 unsigned int elements, unsigned int frames) {
  Library cache;
  unsigned int channel = 0;
  Require(cache.initFileWrite(folder.path().c_str(), "shot", Library::eSingleFile, "ncx",
                              kTicksPerFrame) &&
              cache.addChannel("P", "Points", type, channel),
          "begin");
  for (unsigned int frame = 0; frame < frames; ++frame) {
    const int tick = int(frame) * kTicksPerFrame;
    static_cast<char*>(array)[1] = char(frame);  // no two neighbours are equal
    Require(cache.beginWriteAtTime(tick) && cache.addArrayData(channel, tick, array, elements) &&
                cache.endWriteAtTime(),
            "write");
  }
  Require(cache.endFileWrite(), "end");
}

// T is the value type of the channel, which holds vectors.
template <typename T>
void Fetch(benchmark::State& state) {
  constexpr auto type = sizeof(T) == sizeof(float) ? zuCacheData::eNCFloatVectorArray
                                                   : zuCacheData::eNCDoubleVectorArray;
  const auto points = static_cast<unsigned int>(state.range(0));
  const auto frames = static_cast<unsigned int>(state.range(1));
  const Folder folder;
  std::vector<T> array(size_t{points} * 3);
  for (size_t i = 0; i < array.size(); ++i) array[i] = T(i % 1000);
  WriteFrames(folder, type, array.data(), points, frames);
  const ArrayPlaces places{array.size() * sizeof(T)};

  KelManager* manager = KelManager::Create();
  KelCache* cache = KelCache::Create(manager, "cache");
  cache->SetCacheFileFormat(KelCache::eNCFormat, nullptr);
  cache->SetCacheFileName("", folder.File("shot.xml").c_str(), nullptr);
  Require(cache->OpenFileForRead(nullptr), "open");
  const int file = ::open(folder.File("shot.ncx").c_str(), O_RDONLY);
  // Off the heap, as the fetch's own buffers are, so that both copy alike.
  std::vector<float> floats(array.size());
  const auto fetch = [&] {
    for (unsigned int i = 0; i < frames; ++i) {
      float* values = nullptr;
      unsigned int length = 0;
      Require(cache->Read(&values, length, KelTime::FromFrame(i), 0), "fetch");
      benchmark::DoNotOptimize(values[0]);
    }
  };
  const auto bare = [&] {
    for (unsigned int i = 0; i < frames; ++i) {
      Require(::pread(file, array.data(), places.size, places.At(i)) == ssize_t(places.size),
              "pread");
      if constexpr (sizeof(T) != sizeof(float)) {
        for (size_t k = 0; k < array.size(); ++k) floats[k] = static_cast<float>(array[k]);
        benchmark::DoNotOptimize(floats[0]);
      }
      benchmark::DoNotOptimize(array[0]);
    }
  };
  float* values = nullptr;
  unsigned int length = 0;
  Require(cache->Read(&values, length, KelTime::FromFrame(frames - 1), 0) &&
              values[length - 1] == float(array.back()),
          "the fetched values are the written ones");
  kelbench::Compare(state, double(places.size) * frames, fetch, bare);
  ::close(file);
  manager->Destroy();
}
BENCHMARK_TEMPLATE(Fetch, float)
    ->Name("nc/fetch_float")
    ->Args({100000, 240})
    ->UseManualTime()
    ->MinTime(3)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Fetch, double)
    ->Name("nc/fetch_double")
    ->Args({100000, 120})
    ->UseManualTime()
    ->MinTime(3)
    ->Unit(benchmark::kMillisecond);

void Write(benchmark::State& state) {
  const auto points = static_cast<unsigned int>(state.range(0));
  const auto frames = static_cast<unsigned int>(state.range(1));
  const Folder folder;
  std::vector<float> array(size_t{points} * 3, 0.5f);
  const ArrayPlaces places{array.size() * sizeof(float)};
  const std::string barePath = folder.File("bare");
  double close = 0;
  std::vector<double> ratios;
  for ([[maybe_unused]] auto _ : state) {
    Library cache;
    unsigned int channel = 0;
    Require(cache.initFileWrite(folder.path().c_str(), "shot", Library::eSingleFile, "ncx",
                                kTicksPerFrame) &&
                cache.addChannel("P", "Points", zuCacheData::eNCFloatVectorArray, channel),
            "begin");
    const double mine = kelbench::Seconds([&] {
      for (unsigned int i = 0; i < frames; ++i) {
        const int tick = int(i) * kTicksPerFrame;
        array[0] = float(i);
        Require(cache.beginWriteAtTime(tick) &&
                    cache.addArrayData(channel, tick, array.data(), points) &&
                    cache.endWriteAtTime(),
                "write");
      }
    });
    const int file = ::open(barePath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const double theirs = kelbench::Seconds([&] {
      for (unsigned int i = 0; i < frames; ++i) {
        Require(::pwrite(file, array.data(), places.size, places.At(i)) == ssize_t(places.size),
                "pwrite");
      }
    });
    ::close(file);
    ::unlink(barePath.c_str());
    close = kelbench::Seconds([&] { Require(cache.endFileWrite(), "end"); });
    state.SetIterationTime(mine);
    ratios.push_back(theirs / mine);
    state.counters["GB/s"] = double(places.size) * frames / mine / 1e9;
  }
  state.counters["ratio"] = kelbench::Median(ratios);
  state.counters["close_ms"] = close * 1e3;
}
BENCHMARK(Write)
    ->Name("nc/write")
    ->Args({100000, 240})
    ->UseManualTime()
    ->MinTime(3)
    ->Unit(benchmark::kMillisecond);

// Channels read at each time by two readers of one cache, one with groups and one without.
void CompareGroups(benchmark::State& state, unsigned int channelsRead) {
  constexpr unsigned int kChannels = 8;
  const auto elements = static_cast<unsigned int>(state.range(0));
  const unsigned int frames = 240;
  const Folder folder;
  std::vector<float> array(elements);
  {
    Library cache;
    unsigned int channel = 0;
    Require(cache.initFileWrite(folder.path().c_str(), "shot", Library::eSingleFile, "ncx",
                                kTicksPerFrame),
            "begin");
    for (unsigned int i = 0; i < kChannels; ++i) {
      const std::string name = "c" + std::to_string(i);
      Require(cache.addChannel(name.c_str(), "", zuCacheData::eNCFloatArray, channel), "channel");
    }
    for (unsigned int frame = 0; frame < frames; ++frame) {
      const int tick = int(frame) * kTicksPerFrame;
      cache.beginWriteAtTime(tick);
      for (unsigned int i = 0; i < kChannels; ++i) {
        array[0] = float(frame * kChannels + i);
        Require(cache.addArrayData(i, tick, array.data(), elements), "write");
      }
    }
    Require(cache.endFileWrite(), "end");
  }
  Library with;
  Library without;
  Require(with.initFileRead("shot", folder.path().c_str()) &&
              without.initFileRead("shot", folder.path().c_str()),
          "open");
  with.setOptimizeMultiChannelRead(true);
  const auto play = [&](Library& cache) {
    for (unsigned int frame = 0; frame < frames; ++frame) {
      for (unsigned int i = 0; i < channelsRead; ++i) {
        void* data = array.data();
        unsigned int count = elements;
        Require(cache.getArrayDataAtTime(i, int(frame) * kTicksPerFrame, data, count) &&
                    array[0] == float(frame * kChannels + i),
                "read");
      }
    }
  };
  kelbench::Compare(
      state, double(elements) * 4 * frames * channelsRead, [&] { play(with); },
      [&] { play(without); });
}
BENCHMARK_CAPTURE(CompareGroups, eight, 8)
    ->Name("nc/channels")
    ->Arg(300)
    ->Arg(3000)
    ->Arg(30000)
    ->Arg(300000)
    ->UseManualTime()
    ->MinTime(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(CompareGroups, one, 1)
    ->Name("nc/one_channel")
    ->Arg(3000)
    ->UseManualTime()
    ->MinTime(1)
    ->Unit(benchmark::kMillisecond);

void Open(benchmark::State& state, Library::cacheFileFormat format, int samples) {
  const Folder folder;
  float value = 0;
  {
    Library cache;
    unsigned int channel = 0;
    Require(cache.initFileWrite(folder.path().c_str(), "shot", format, "ncx", kTicksPerFrame) &&
                cache.addChannel("w", "", zuCacheData::eNCFloatArray, channel),
            "begin");
    for (int i = 0; i < samples; ++i) {
      value = float(i);
      Require(cache.beginWriteAtTime(i * 10) && cache.addArrayData(0, i * 10, &value, 1) &&
                  cache.endWriteAtTime(),
              "write");
    }
    Require(cache.endFileWrite(), "end");
  }
  double memory = 0;
  for ([[maybe_unused]] auto _ : state) {
    const auto inUse = [] { return double(mallinfo2().uordblks + mallinfo2().hblkhd); };
    const double before = inUse();
    Library cache;
    state.SetIterationTime(kelbench::Seconds(
        [&] { Require(cache.initFileRead("shot", folder.path().c_str()), "open"); }));
    void* data = &value;
    unsigned int count = 1;
    Require(cache.getArrayDataAtTime(0, 500, data, count) && value == 50.0f, "read");
    memory = (inUse() - before) / samples;
  }
  state.counters["B/sample"] = memory;
}
BENCHMARK_CAPTURE(Open, single, Library::eSingleFile, 1000000)
    ->Name("nc/open/single_1000000")
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Open, frames, Library::eFilePerFrame, 100000)
    ->Name("nc/open/frames_100000")
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);

}  // namespace
