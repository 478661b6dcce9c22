// Alembic archives in the page cache, against bare system calls over the same bytes. Each workload
// makes its archive in the temporary folder.
//
//   fetch_positions            100,000 points x 100 samples  vs  a positioned-read loop
//   fetch_many_meshes          1,000 meshes of 8 points at one time
//   open_many_meshes/POINTS    1,000 meshes of four properties and one sample
//   open_many_samples/POINTS   one mesh of 2,000 samples
//
// `ratio` is baseline time / our time, its target 0.9. `beyond_ns` is what a channel's fetch takes
// beyond a bare read of its bytes, its target below 2,000. `calls` are the system calls of one
// open. Archives of 8 points fit the cache for headers, those of 2,000 do not.
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "backends/AlembicInterface.h"
#include "bench/ratio.h"
#include "tests/alembic/ogawa_writer.h"

// The linker turns a call of X into one of __wrap_X, and __real_X into X itself.
static long systemCalls = 0;
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
ssize_t __real_pread(int fd, void* buffer, size_t count, off_t offset);
ssize_t __wrap_pread(int fd, void* buffer, size_t count, off_t offset) {
  ++systemCalls;
  return __real_pread(fd, buffer, count, offset);
}
ssize_t __real_preadv(int fd, const struct iovec* parts, int count, off_t offset);
ssize_t __wrap_preadv(int fd, const struct iovec* parts, int count, off_t offset) {
  ++systemCalls;
  return __real_preadv(fd, parts, count, offset);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using kelsdk::KelTime;
using kelsdk::alembic::EPlainType;
using kelsdk::alembic::test::OgawaWriter;

constexpr std::uint64_t kBeforeValues = 24;  // a block's size and key

void Require(bool done, const char* what) {
  if (!done) throw std::runtime_error(what);
}

/// An archive in the temporary folder, removed at the end, and where the values of its samples are.
struct MadeArchive {
  std::string path;
  std::vector<std::uint64_t> offsets;

  explicit MadeArchive(const char* name)
      : path(std::filesystem::temp_directory_path() /
             ("kelcache-bench-" + std::to_string(::getpid()) + name)) {}
  ~MadeArchive() { std::filesystem::remove(path); }
  MadeArchive(const MadeArchive&) = delete;
  MadeArchive& operator=(const MadeArchive&) = delete;

  std::uint64_t Sample(OgawaWriter& out, const std::vector<float>& values) {
    offsets.push_back(out.Position() + kBeforeValues);
    return out.Sample(values.data(), values.size() * sizeof(float));
  }
};

// A mesh: positions of its own samples, and topology and bounds that do not change.
std::uint64_t WriteMesh(OgawaWriter& out, const std::vector<std::uint64_t>& samples) {
  const int faces[4] = {0, 1, 2, 3};
  const double box[6] = {};
  const auto count = static_cast<std::uint32_t>(samples.size());
  const auto bounds = out.Group({out.Sample(box, sizeof box)});
  const auto indices = out.ArraySamples({out.Sample(faces, sizeof faces)});
  const auto counts = out.ArraySamples({out.Sample(faces, sizeof faces[0])});
  const auto points = out.ArraySamples(samples);
  const auto geom = out.Compound({{.name = ".selfBnds",
                                   .kind = 1,
                                   .type = EPlainType::eFloat64,
                                   .extent = 6,
                                   .sampleCount = count,
                                   .constant = true,
                                   .timeSampling = 1,
                                   .slot = bounds},
                                  {.name = "P",
                                   .extent = 3,
                                   .sampleCount = count,
                                   .timeSampling = 1,
                                   .metadata = "geoScope=vtx;interpretation=point",
                                   .slot = points},
                                  {.name = ".faceIndices",
                                   .type = EPlainType::eInt32,
                                   .sampleCount = count,
                                   .constant = true,
                                   .timeSampling = 1,
                                   .slot = indices},
                                  {.name = ".faceCounts",
                                   .type = EPlainType::eInt32,
                                   .sampleCount = count,
                                   .constant = true,
                                   .timeSampling = 1,
                                   .slot = counts}});
  const auto top = out.Compound(
      {{.name = ".geom", .kind = 0, .metadata = OgawaWriter::MeshMetadata(), .slot = geom}});
  return out.Object(top, {});
}

void WriteOneMesh(MadeArchive& archive, std::size_t points, std::size_t sampleCount) {
  OgawaWriter out(archive.path);
  std::vector<std::uint64_t> samples;
  std::vector<float> values(points * 3);
  for (std::size_t i = 0; i < sampleCount; ++i) {
    values.assign(values.size(), static_cast<float>(i));
    samples.push_back(archive.Sample(out, values));
  }
  const auto mesh = WriteMesh(out, samples);
  const auto top = out.Object(0, {{.name = "mesh", .slot = mesh}});
  out.Finish(top, {{.period = 1 / 24.0}});
}

void WriteManyMeshes(MadeArchive& archive, std::size_t meshCount, std::size_t points) {
  OgawaWriter out(archive.path);
  std::vector<OgawaWriter::ObjectSpec> meshes;
  std::vector<float> values(points * 3);
  for (std::size_t i = 0; i < meshCount; ++i) {
    values.assign(values.size(), static_cast<float>(i));
    std::string name = "mesh";
    name += std::to_string(i);
    meshes.push_back(
        {name, OgawaWriter::MeshMetadata(), WriteMesh(out, {archive.Sample(out, values)})});
  }
  const auto top = out.Object(0, meshes);
  out.Finish(top, {{.period = 1 / 24.0}});
}

void OpenForReading(AlembicInterface& reader, const MadeArchive& archive) {
  Require(reader.Open(archive.path.c_str(), 1), reader.GetErrorString());
}

void FetchPositions(benchmark::State& state) {
  constexpr unsigned int kPoints = 100'000;
  constexpr unsigned int kSamples = 100;
  MadeArchive archive("positions.abc");
  WriteOneMesh(archive, kPoints, kSamples);
  AlembicInterface reader(true);
  OpenForReading(reader, archive);
  Require(reader.GetChannelBufferLength(0) == kPoints, "wrong number of points");
  std::vector<float> values(std::size_t{kPoints} * 3);
  const std::size_t bytes = values.size() * sizeof(float);
  const int fd = ::open(archive.path.c_str(), O_RDONLY | O_CLOEXEC);
  const auto ours = [&] {
    for (unsigned int i = 0; i < kSamples; ++i) {
      const KelTime time = KelTime::FromFrame(i, {24, 1});
      Require(reader.GetChannelBuffer(0, values.data(), kPoints, time), "fetch");
      Require(values.front() == float(i) && values.back() == float(i), "wrong values");
    }
  };
  const auto bare = [&] {
    for (unsigned int i = 0; i < kSamples; ++i) {
      const auto got = ::pread(fd, values.data(), bytes, static_cast<off_t>(archive.offsets[i]));
      Require(got == static_cast<ssize_t>(bytes), "bare read");
      Require(values.front() == float(i) && values.back() == float(i), "wrong bare values");
    }
  };
  kelbench::Compare(state, double(bytes) * kSamples, ours, bare);
  ::close(fd);
}

void FetchManyMeshes(benchmark::State& state) {
  constexpr unsigned int kMeshes = 1000;
  constexpr unsigned int kPoints = 8;
  MadeArchive archive("meshes.abc");
  WriteManyMeshes(archive, kMeshes, kPoints);
  AlembicInterface reader(true);
  OpenForReading(reader, archive);
  float values[kPoints * 3];
  const int fd = ::open(archive.path.c_str(), O_RDONLY | O_CLOEXEC);
  const auto ours = [&] {
    for (unsigned int i = 0; i < kMeshes; ++i) {
      Require(reader.GetChannelBuffer(i, values, kPoints, KelTime()), "fetch");
      Require(values[3] == float(i), "wrong values");
    }
  };
  const auto bare = [&] {
    for (unsigned int i = 0; i < kMeshes; ++i) {
      const auto got = ::pread(fd, values, sizeof values, static_cast<off_t>(archive.offsets[i]));
      Require(got == sizeof values && values[3] == float(i), "bare read");
    }
  };
  ours();
  std::vector<double> beyond;
  for ([[maybe_unused]] auto _ : state) {
    const double theirs = kelbench::Seconds(bare);
    const double mine = kelbench::Seconds(ours);
    state.SetIterationTime(mine);
    beyond.push_back((mine - theirs) / kMeshes * 1e9);
  }
  state.counters["beyond_ns"] = kelbench::Median(beyond);
  ::close(fd);
}

void MeasureOpen(benchmark::State& state, const MadeArchive& archive, int channels) {
  long calls = 0;
  for ([[maybe_unused]] auto _ : state) {
    const long before = systemCalls;
    AlembicInterface reader(true);
    OpenForReading(reader, archive);
    calls = systemCalls - before;
    Require(reader.GetNumChannels() == channels, "wrong number of channels");
  }
  // Beside the reads: opening the file and asking its size.
  state.counters["calls"] = static_cast<double>(calls + 2);
  state.counters["file_kB"] = static_cast<double>(std::filesystem::file_size(archive.path)) / 1e3;
}

void OpenManyMeshes(benchmark::State& state) {
  MadeArchive archive("many.abc");
  WriteManyMeshes(archive, 1000, static_cast<std::size_t>(state.range(0)));
  MeasureOpen(state, archive, 4000);
}

void OpenManySamples(benchmark::State& state) {
  MadeArchive archive("long.abc");
  WriteOneMesh(archive, static_cast<std::size_t>(state.range(0)), 2000);
  MeasureOpen(state, archive, 4);
}

BENCHMARK(FetchPositions)
    ->Name("alembic/fetch_positions")
    ->UseManualTime()
    ->MinTime(2)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(FetchManyMeshes)
    ->Name("alembic/fetch_many_meshes")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(OpenManyMeshes)
    ->Name("alembic/open_many_meshes")
    ->Arg(8)
    ->Arg(2000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(OpenManySamples)
    ->Name("alembic/open_many_samples")
    ->Arg(8)
    ->Arg(2000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
