// Objects, properties, times and samples: opens, lists and verifies. What an archive claims to hold
// must be within what its file can hold, and what verifies must read.
#include <vector>

#include "backends/alembic/archive.h"
#include "backends/alembic/report.h"
#include "fuzz/support.h"

using namespace kelsdk::alembic;
using kelsdk::fuzz::Require;

namespace {

void CheckHierarchy(const Hierarchy& hierarchy, std::size_t size) {
  Require(!hierarchy.objects.empty());
  Require(hierarchy.objects.size() + hierarchy.properties.size() <= size / 8);
  Require(hierarchy.names.size() <= 4 * size);
  for (const Object& object : hierarchy.objects) {
    Require(object.metadata < hierarchy.metadata.size());
    Require(object.firstProperty + object.propertyCount <= hierarchy.properties.size());
  }
  for (const Property& property : hierarchy.properties) {
    if (property.kind == EPropertyKind::eCompound || property.sampleCount == 0) continue;
    Require(property.StoredIndex(property.sampleCount - 1) < property.StoredCount());
    const TimeSampling& sampling = hierarchy.timeSamplings[property.timeSampling];
    const std::uint32_t timed = sampling.TimedSamples(property.sampleCount);
    if (timed == 0) continue;
    const double end = sampling.TimeOf(timed - 1);
    for (const double seconds : {sampling.TimeOf(0), end, end / 3, -1e300, 1e300}) {
      Require(sampling.FloorSample(seconds, timed) < timed);
    }
  }
}

void ReadAll(Archive& archive) {
  std::vector<std::uint8_t> values(256);
  for (PropertyId id = 0; id < archive.hierarchy().properties.size(); ++id) {
    const std::uint64_t stored = archive.hierarchy().properties[id].StoredCount();
    if (stored == 0) continue;
    kelsdk::io::Error error;
    std::uint64_t size = 0;
    std::uint64_t read = 0;
    std::uint64_t fileBytes = 0;
    const bool sized = archive.ValueBytes(id, stored - 1, size, error);
    if (archive.ReadValues(id, stored - 1, values.data(), values.size(), read, error)) {
      Require(sized && read == size && archive.FileBytes(id, stored - 1, fileBytes, error));
      Require(fileBytes <= archive.FileSize());
    }
  }
}

}  // namespace

// What libhdf5 does not free of damaged files is not ours to free.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libhdf5";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string path = kelsdk::fuzz::FileOf(bytes, size);
  kelsdk::io::Error error;
  const auto archive = OpenArchive(path.c_str(), error);
  Require(archive != nullptr || error);
  if (archive == nullptr) return 0;
  CheckHierarchy(archive->hierarchy(), size);
  ReadAll(*archive);
  ListTree(archive->hierarchy(), {});
  Verify(*archive, {});
  return 0;
}
