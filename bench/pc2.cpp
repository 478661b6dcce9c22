#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>

#include "bench/paths.h"

namespace kelbench {
namespace {

constexpr std::uint64_t kHeaderSize = 32;

// A file that claims every frame and holds the first of each pose: as long as a real one, and only
// as large on disk as what is read of it.
void MakeSparse(const Workload& workload, const std::string& path) {
  unsigned char header[kHeaderSize] = "POINTCACHE2";
  const std::int32_t counts[2] = {1, static_cast<std::int32_t>(workload.points())};
  const float timing[2] = {0, 1};
  const auto frames = static_cast<std::int32_t>(workload.frames());
  std::memcpy(header + 12, counts, sizeof counts);
  std::memcpy(header + 20, timing, sizeof timing);
  std::memcpy(header + 28, &frames, sizeof frames);
  const BareFile file(path, O_WRONLY | O_CREAT | O_TRUNC);
  file.Write(header, sizeof header, 0);
  const std::uint64_t last = workload.frames() - 1;
  file.Write(workload.Pose(workload.poses() - 1), workload.frameBytes(),
             kHeaderSize + last * workload.frameBytes());
  VisitPoses(workload, [&](std::uint64_t frame, unsigned int pose) {
    file.Write(workload.Pose(pose), workload.frameBytes(),
               kHeaderSize + frame * workload.frameBytes());
  })();
}

Contender ReadingDoubles(const Workload& workload, const std::shared_ptr<Object>& cache) {
  const auto doubles = std::make_shared<std::vector<double>>(workload.valueCount());
  return {"doubles", VisitPoses(workload, [=, &workload](unsigned int frame, auto) {
            Require((*cache)->Read(frame, doubles->data(), workload.points(), nullptr), "read");
            Keep(doubles->data());
          })};
}

Contender BareReadingDoubles(const Workload& workload, const std::string& path) {
  const auto file = std::make_shared<BareFile>(path, O_RDONLY);
  const auto floats = std::make_shared<std::vector<float>>(workload.valueCount());
  const auto doubles = std::make_shared<std::vector<double>>(workload.valueCount());
  return {"read", VisitPoses(workload, [=, &workload](std::uint64_t frame, auto) {
            file->Read(floats->data(), workload.frameBytes(),
                       kHeaderSize + frame * workload.frameBytes());
            for (std::size_t i = 0; i < floats->size(); ++i) (*doubles)[i] = (*floats)[i];
            Keep(doubles->data());
          })};
}

std::vector<unsigned int> Shuffled(unsigned int frames) {
  std::vector<unsigned int> order(frames);
  std::iota(order.begin(), order.end(), 0U);
  std::shuffle(order.begin(), order.end(), std::minstd_rand(1));
  return order;
}

// The frames of a cache, as the doubles that are written.
std::shared_ptr<std::vector<double>> AsDoubles(const Workload& workload) {
  const float* const first = workload.Pose(0);
  return std::make_shared<std::vector<double>>(first,
                                               first + workload.poses() * workload.valueCount());
}

void MeasureWrite(Table& table, Case& in) {
  if (!table.Wants("pc2 write") && !table.Wants("pc2 save")) return;
  const Workload& workload = in.workload;
  const auto doubles = AsDoubles(workload);
  const std::string path = in.scratch.File("written.pc2");
  const auto cache = std::make_shared<Object>(KelCache::ePC2Format, path);
  const Contender ours = {
      "write",
      VisitPoses(workload,
                 [=, &workload](unsigned int frame, auto) {
                   Require(
                       (*cache)->Write(frame, &(*doubles)[frame * workload.valueCount()], nullptr),
                       "write");
                 }),
      [=, &workload] {
        Require((*cache)->OpenFileForWrite(0, 24, workload.frames(), workload.points(), nullptr),
                "open for writing");
      },
      [=] {
        (*cache)->CloseFile(nullptr);
        std::remove(path.c_str());
      }};
  const auto file = std::make_shared<std::unique_ptr<BareFile>>();
  const auto floats = std::make_shared<std::vector<float>>(workload.valueCount());
  const Contender bare = {
      "bare write",
      VisitPoses(workload,
                 [=, &workload](std::uint64_t frame, auto) {
                   const double* const from = &(*doubles)[frame * workload.valueCount()];
                   for (std::size_t i = 0; i < floats->size(); ++i) (*floats)[i] = float(from[i]);
                   (*file)->Write(floats->data(), workload.frameBytes(),
                                  kHeaderSize + frame * workload.frameBytes());
                 }),
      [=] { *file = std::make_unique<BareFile>(path + ".bare", O_WRONLY | O_CREAT | O_TRUNC); },
      [=] {
        file->reset();
        std::remove((path + ".bare").c_str());
      }};
  if (table.Wants("pc2 write")) {
    table.Row("pc2 write", workload, workload.frames(), workload.frameBytes(), 0,
              Together(ours, bare, PeerWriters(workload, in.scratch)));
  }
  if (!table.Wants("pc2 save")) return;
  table.Row("pc2 save", workload, workload.frames(), workload.frameBytes(), 0,
            {Saving(
                 ours, [=] { (*cache)->CloseFile(nullptr); }, [=] { std::remove(path.c_str()); }),
             Saving(
                 bare, [=] { (*file)->Sync(); }, bare.after)});
}

}  // namespace

void MeasurePC2(Table& table, Case& in) {
  const Workload& workload = in.workload;
  const std::string path = in.scratch.File("read.pc2");
  MakeSparse(workload, path);
  const auto cache = std::make_shared<Object>(KelCache::ePC2Format, path);
  if (table.Wants("pc2 open")) {
    table.Row("pc2 open", workload, kOpenings, 0, 0,
              Together(Opening(cache), BareOpening(path), in.Floats().Openers(kOpenings)));
  }
  Require((*cache)->OpenFileForRead(nullptr), "open");
  if (table.Wants("pc2 fetch")) {
    std::vector<std::uint64_t> offsets;
    for (unsigned int pose = 0; pose < workload.poses(); ++pose) {
      offsets.push_back(kHeaderSize +
                        std::uint64_t{workload.FirstFrame(pose)} * workload.frameBytes());
    }
    table.Row(
        "pc2 fetch", workload, workload.poses(), workload.frameBytes(), 0,
        Together(Fetching(workload, cache), BareReading(workload, path, EValue::eFloat, offsets),
                 in.Floats().Readers(EValue::eFloat)));
  }
  if (workload.IsWhole() && table.Wants("pc2 random")) {
    const std::vector<unsigned int> order = Shuffled(workload.frames());
    const auto file = std::make_shared<BareFile>(path, O_RDONLY);
    const auto floats = std::make_shared<std::vector<float>>(workload.valueCount());
    table.Row("pc2 random", workload, workload.frames(), workload.frameBytes(), 0,
              {{"fetch",
                [&] {
                  for (const unsigned int frame : order) Fetch(*cache, workload, frame, 0);
                }},
               {"read", [&] {
                  for (const std::uint64_t frame : order) {
                    file->Read(floats->data(), workload.frameBytes(),
                               kHeaderSize + frame * workload.frameBytes());
                    Keep(floats->data());
                  }
                }}});
  }
  if (table.Wants("pc2 doubles")) {
    table.Row("pc2 doubles", workload, workload.poses(), workload.frameBytes(), 0,
              Together(ReadingDoubles(workload, cache), BareReadingDoubles(workload, path),
                       in.Floats().Readers(EValue::eDouble)));
  }
  if (workload.IsWhole()) MeasureWrite(table, in);
}

}  // namespace kelbench
