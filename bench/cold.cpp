#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "backends/zuCacheFileInterface.h"
#include "bench/paths.h"

namespace kelbench {
namespace {

using kelsdk::zuCacheData;
using kelsdk::zuCacheFileInterface;

constexpr unsigned int kFetches = 80;
constexpr auto kWork = std::chrono::milliseconds(5);

// One frame after the other: fetched, then worked on. Only the waiting for frames counts.
template <typename FetchFrame>
Contender Playing(const char* name, const BareFile& file, const std::vector<unsigned int>& frames,
                  FetchFrame fetch) {
  const auto worked = std::make_shared<double>(0);
  return {name,
          [=, &frames] {
            for (const unsigned int frame : frames) {
              fetch(frame);
              const auto begin = std::chrono::steady_clock::now();
              std::this_thread::sleep_for(kWork);
              const auto end = std::chrono::steady_clock::now();
              *worked += std::chrono::duration<double>(end - begin).count();
            }
          },
          [=, &file] {
            *worked = 0;
            Require(::posix_fadvise(file.Descriptor(), 0, 0, POSIX_FADV_DONTNEED) == 0, "drop");
          },
          [] {}, [=] { return *worked; }};
}

// `first`, `first` + `step`, ...
std::vector<unsigned int> Frames(unsigned int first, int step) {
  std::vector<unsigned int> frames;
  for (unsigned int i = 0; i < kFetches; ++i) {
    frames.push_back(static_cast<unsigned int>(int(first) + int(i) * step));
  }
  return frames;
}

struct Pattern {
  const char* name;
  unsigned int first;
  int step;
};
constexpr Pattern kForward = {"forward", 0, 1};
constexpr Pattern kPatterns[] = {
    kForward, {"every 4th", 0, 4}, {"backwards", 4 * kFetches - 1, -1}};

// Frames stand at `offset` + frame x `stride` bytes.
struct Placing {
  std::uint64_t offset;
  std::uint64_t stride;
};

void Measure(Table& table, const std::string& row, const Workload& workload, const Object& cache,
             const std::string& path, const Placing& place, const Pattern& pattern) {
  const std::vector<unsigned int> frames = Frames(pattern.first, pattern.step);
  const BareFile file(path, O_RDONLY);
  std::vector<char> bytes(workload.frameBytes());
  Require(::fsync(file.Descriptor()) == 0, "fsync");  // what is not yet on disk is not dropped
  table.Row(row, workload, kFetches, workload.frameBytes(), 0,
            {Playing("fetch", file, frames,
                     [&](unsigned int frame) { Fetch(cache, workload, frame, 0); }),
             Playing("read", file, frames, [&](unsigned int frame) {
               file.Read(bytes.data(), bytes.size(), place.offset + frame * place.stride);
             })});
}

void MeasurePC2(Table& table, const Workload& workload) {
  const Scratch scratch;
  const std::string path = scratch.File("cold.pc2");
  const Object cache(KelCache::ePC2Format, path);
  constexpr unsigned int kFrames = 4 * kFetches;
  Require(cache->OpenFileForWrite(0, 24, kFrames, workload.points(), nullptr), "write");
  for (unsigned int frame = 0; frame < kFrames; ++frame) {
    const float* const pose = workload.Pose(frame % workload.poses());
    std::vector<double> doubles(pose, pose + workload.valueCount());
    Require(cache->Write(frame, doubles.data(), nullptr), "write");
  }
  cache->CloseFile(nullptr);
  Require(cache->OpenFileForRead(nullptr), "open");
  for (const Pattern& pattern : kPatterns) {
    const std::string row = std::string("pc2 cold, ") + pattern.name;
    if (!table.Wants(row)) continue;
    Measure(table, row, workload, cache, path, {32, workload.frameBytes()}, pattern);
  }
}

void MeasureOneChannelOfEight(Table& table, const Workload& workload) {
  constexpr unsigned int kChannels = 8;
  constexpr int kTicksPerFrame = 250;
  constexpr std::uint64_t kBeforeArray = 64;  // a record's header; arrays are multiples of 64 bytes
  const Scratch scratch;
  {
    zuCacheFileInterface out;
    Require(out.initFileWrite(scratch.folder().c_str(), "cold", zuCacheFileInterface::eSingleFile,
                              "ncx", kTicksPerFrame),
            "begin");
    unsigned int channel = 0;
    for (unsigned int i = 0; i < kChannels; ++i) {
      Require(out.addChannel(("c" + std::to_string(i)).c_str(), "",
                             zuCacheData::eNCFloatVectorArray, channel),
              "channel");
    }
    std::vector<float> array(workload.valueCount());
    for (unsigned int frame = 0; frame < kFetches; ++frame) {
      const int tick = static_cast<int>(frame) * kTicksPerFrame;
      const float* const pose = workload.Pose(frame % workload.poses());
      Require(out.beginWriteAtTime(tick), "write");
      for (unsigned int i = 0; i < kChannels; ++i) {
        array.assign(pose, pose + workload.valueCount());
        array[0] = static_cast<float>(i);  // equal arrays are stored once
        Require(out.addArrayData(i, tick, array.data(), workload.points()), "write");
      }
      Require(out.endWriteAtTime(), "write");
    }
    Require(out.endFileWrite(), "end");
  }
  const Object cache(KelCache::eNCFormat, scratch.File("cold.xml"));
  Require(cache->OpenFileForRead(nullptr), "open");
  Measure(table, "ncx cold, one of 8", workload, cache, scratch.File("cold.ncx"),
          {kBeforeArray, kChannels * (kBeforeArray + workload.frameBytes())}, kForward);
}

}  // namespace

void MeasureCold(Table& table) {
  if (table.Wants("pc2 cold")) MeasurePC2(table, Workload::Cloth(100'000, 4));
  if (table.Wants("ncx cold")) MeasureOneChannelOfEight(table, Workload::Cloth(51'200, 4));
}

}  // namespace kelbench
