#include <fcntl.h>
#include <unistd.h>

#include "bench/paths.h"
#include "tests/alembic/ogawa_writer.h"

namespace kelbench {
namespace {

using kelsdk::alembic::EPlainType;
using kelsdk::alembic::test::OgawaWriter;

constexpr std::uint64_t kBeforeValues = 24;  // a block's size and key

// A mesh: positions of its own samples, and topology and bounds that do not change.
std::uint64_t WriteMesh(OgawaWriter& out, EValue stored,
                        const std::vector<std::uint64_t>& samples) {
  const int faces[4] = {0, 1, 2, 3};
  const double box[6] = {};
  const auto count = static_cast<std::uint32_t>(samples.size());
  const auto bounds = out.Group({out.Sample(box, sizeof box)});
  const auto indices = out.ArraySamples({out.Sample(faces, sizeof faces)});
  const auto counts = out.ArraySamples({out.Sample(faces, sizeof faces[0])});
  const auto points = out.ArraySamples(samples);
  const OgawaWriter::PropertySpec positions = {
      .name = "P",
      .type = stored == EValue::eFloat ? EPlainType::eFloat32 : EPlainType::eFloat64,
      .extent = 3,
      .sampleCount = count,
      .timeSampling = 1,
      .metadata = "geoScope=vtx;interpretation=point",
      .slot = points};
  const auto unchanging = [&](const char* name, EPlainType type, int kind, unsigned int extent,
                              std::uint64_t slot) {
    return OgawaWriter::PropertySpec{.name = name,
                                     .kind = kind,
                                     .type = type,
                                     .extent = extent,
                                     .sampleCount = count,
                                     .constant = true,
                                     .timeSampling = 1,
                                     .slot = slot};
  };
  const auto geom =
      out.Compound({positions, unchanging(".selfBnds", EPlainType::eFloat64, 1, 6, bounds),
                    unchanging(".faceIndices", EPlainType::eInt32, 2, 1, indices),
                    unchanging(".faceCounts", EPlainType::eInt32, 2, 1, counts)});
  const auto top = out.Compound(
      {{.name = ".geom", .kind = 0, .metadata = OgawaWriter::MeshMetadata(), .slot = geom}});
  return out.Object(top, {});
}

// One mesh; the samples of a held pose share its bytes. Gives where each pose stands.
std::vector<std::uint64_t> WriteOneMesh(const Workload& workload, const std::string& path,
                                        EValue stored) {
  OgawaWriter out(path);
  std::vector<std::uint64_t> offsets;
  std::vector<std::uint64_t> slots;
  VisitPoses(workload, [&](auto, unsigned int pose) {
    const float* const values = workload.Pose(pose);
    const std::vector<double> doubles(values, values + workload.valueCount());
    offsets.push_back(out.Position() + kBeforeValues);
    slots.push_back(stored == EValue::eFloat
                        ? out.Sample(values, workload.frameBytes())
                        : out.Sample(doubles.data(), doubles.size() * sizeof(double)));
  })();
  std::vector<std::uint64_t> samples;
  for (unsigned int frame = 0; frame < workload.frames(); ++frame) {
    samples.push_back(slots[workload.PoseOf(frame)]);
  }
  const auto mesh = WriteMesh(out, stored, samples);
  out.Finish(out.Object(0, {{.name = "mesh", .slot = mesh}}), 1 / 24.0);
  return offsets;
}

}  // namespace

void MeasureAlembic(Table& table, Case& in) {
  const Workload& workload = in.workload;
  for (const EValue stored : {EValue::eFloat, EValue::eDouble}) {
    const bool isFloat = stored == EValue::eFloat;
    const char* const fetch = isFloat ? "abc fetch" : "abc doubles";
    const bool wantsOpen = isFloat && table.Wants("abc open");
    if (!table.Wants(fetch) && !wantsOpen) continue;
    const std::string path = in.scratch.File("mesh.abc");
    std::vector<std::uint64_t> offsets = WriteOneMesh(workload, path, stored);
    const auto cache = std::make_shared<Object>(KelCache::eAlembicFormat, path);
    PeerFiles& peers = isFloat ? in.Floats() : in.Doubles();
    if (wantsOpen) {
      table.Row("abc open", workload, kOpenings, 0, 0,
                Together(Opening(cache), BareOpening(path), peers.Openers(kOpenings)));
    }
    if (!table.Wants(fetch)) continue;
    Require((*cache)->OpenFileForRead(nullptr), "open");
    table.Row(fetch, workload, workload.poses(), workload.valueCount() * SizeOf(stored), 0,
              Together(Fetching(workload, cache), BareReading(workload, path, stored, offsets),
                       peers.Readers(EValue::eFloat)));
    std::remove(path.c_str());
  }
}

void MeasureMeshes(Table& table, unsigned int points) {
  constexpr unsigned int kMeshes = 1000;
  if (!table.Wants("abc 1000 meshes")) return;
  const Scratch scratch;
  const std::string path = scratch.File("meshes.abc");
  const Workload workload = Workload::Cloth(points, 1);
  std::vector<std::uint64_t> offsets;
  {
    OgawaWriter out(path);
    std::vector<OgawaWriter::ObjectSpec> meshes;
    for (unsigned int i = 0; i < kMeshes; ++i) {
      offsets.push_back(out.Position() + kBeforeValues);
      const auto sample = out.Sample(workload.Pose(0), workload.frameBytes());
      meshes.push_back({"mesh" + std::to_string(i), OgawaWriter::MeshMetadata(),
                        WriteMesh(out, EValue::eFloat, {sample})});
    }
    out.Finish(out.Object(0, meshes), 1 / 24.0);
  }
  const Object cache(KelCache::eAlembicFormat, path);
  Contender ours = {"open", [&] {
                      Require(cache->OpenFileForRead(nullptr), "open");
                      cache->CloseFile(nullptr);
                    }};
  const BareFile file(path, O_RDONLY);
  std::vector<char> bytes(std::size_t(::lseek(file.Descriptor(), 0, SEEK_END)));
  Contender bare = {"read", [&] { file.Read(bytes.data(), bytes.size(), 0); }};
  table.Row("abc 1000 meshes, open", workload, 1, 0, 0, {ours, bare});

  Require(cache->OpenFileForRead(nullptr), "open");
  ours.pass = [&] {
    for (unsigned int mesh = 0; mesh < kMeshes; ++mesh) {
      float* values = nullptr;
      unsigned int length = 0;
      Require(cache->Read(&values, length, KelTime(), mesh) && length == workload.valueCount(),
              "fetch");
    }
  };
  bare.pass = [&] {
    for (unsigned int mesh = 0; mesh < kMeshes; ++mesh) {
      file.Read(bytes.data(), workload.frameBytes(), offsets[mesh]);
    }
  };
  table.Row("abc 1000 meshes, fetch", workload, kMeshes, workload.frameBytes(), 0, {ours, bare});
}

void MeasureScene(Table& table, unsigned int points) {
  constexpr unsigned int kMeshes = 5000;
  constexpr unsigned int kFrames = 24;
  if (!table.Wants("abc 5000 meshes")) return;
  const Scratch scratch;
  const std::string path = scratch.File("scene.abc");
  const Workload workload = Workload::Cloth(points, kFrames);
  std::vector<std::uint64_t> offsets;
  {
    // As exporters write: all meshes of a frame, then those of the next.
    OgawaWriter out(path);
    std::vector<std::vector<std::uint64_t>> samples(kMeshes);
    for (unsigned int frame = 0; frame < kFrames; ++frame) {
      for (std::vector<std::uint64_t>& mesh : samples) {
        offsets.push_back(out.Position() + kBeforeValues);
        mesh.push_back(out.Sample(workload.Pose(frame), workload.frameBytes()));
      }
    }
    std::vector<OgawaWriter::ObjectSpec> meshes;
    for (unsigned int i = 0; i < kMeshes; ++i) {
      meshes.push_back({"mesh" + std::to_string(i), OgawaWriter::MeshMetadata(),
                        WriteMesh(out, EValue::eFloat, samples[i])});
    }
    out.Finish(out.Object(0, meshes), 1 / 24.0);
  }
  const Object cache(KelCache::eAlembicFormat, path);
  const auto fetch = [&](unsigned int frames) {
    for (unsigned int frame = 0; frame < frames; ++frame) {
      for (unsigned int mesh = 0; mesh < kMeshes; ++mesh) {
        Fetch(cache, workload, frame, mesh);
      }
    }
  };
  const BareFile file(path, O_RDONLY);
  std::vector<char> bytes(workload.frameBytes());
  const auto read = [&](unsigned int frames) {
    for (std::size_t block = 0; block < std::size_t{frames} * kMeshes; ++block) {
      file.Read(bytes.data(), bytes.size(), offsets[block]);
    }
  };
  table.Row("abc 5000 meshes, start", workload, kMeshes, 0, 0,
            {{"open and first frame",
              [&] {
                Require(cache->OpenFileForRead(nullptr), "open");
                fetch(1);
                cache->CloseFile(nullptr);
              }},
             {"read", [&] { read(1); }}});
  Require(cache->OpenFileForRead(nullptr), "open");
  table.Row("abc 5000 meshes, fetch", workload, kMeshes * kFrames, workload.frameBytes(), 0,
            {{"all frames", [&] { fetch(kFrames); }}, {"read", [&] { read(kFrames); }}});
}

}  // namespace kelbench
