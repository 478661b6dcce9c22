#include "bench/paths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace kelbench {

Object::Object(KelCache::EFileFormat format, const std::string& path)
    : manager_(kelsdk::KelManager::Create()), cache_(KelCache::Create(manager_, "cache")) {
  cache_->SetCacheFileFormat(format, nullptr);
  cache_->SetCacheFileName("", path.c_str(), nullptr);
}

BareFile::BareFile(const std::string& path, int flags)
    : descriptor_(::open(path.c_str(), flags, 0600)) {
  Require(descriptor_ >= 0, "open");
}
BareFile::~BareFile() {
  ::close(descriptor_);
}
void BareFile::Read(void* bytes, std::size_t count, std::uint64_t offset) const {
  Require(::pread(descriptor_, bytes, count, off_t(offset)) == ssize_t(count), "pread");
}
void BareFile::Write(const void* bytes, std::size_t count, std::uint64_t offset) const {
  Require(::pwrite(descriptor_, bytes, count, off_t(offset)) == ssize_t(count), "pwrite");
}

void BareFile::Sync() const {
  Require(::fsync(descriptor_) == 0, "fsync");
}

const float* Fetch(const Object& cache, const Workload& workload, unsigned int frame,
                   unsigned int channel) {
  float* values = nullptr;
  unsigned int length = 0;
  Require(cache->Read(&values, length, KelTime::FromFrame(frame), channel) &&
              length == workload.valueCount(),
          "fetch");
  Keep(values);
  return values;
}

Contender Fetching(const Workload& workload, const std::shared_ptr<Object>& cache) {
  VisitPoses(workload, [&workload, cache](unsigned int frame, unsigned int pose) {
    Require(std::equal(workload.Pose(pose), workload.Pose(pose) + workload.valueCount(),
                       Fetch(*cache, workload, frame, 0)),
            "fetch what was written");
  })();
  return {"fetch", VisitPoses(workload, [&workload, cache](unsigned int frame, unsigned int) {
            Fetch(*cache, workload, frame, 0);
          })};
}

Contender BareReading(const Workload& workload, const std::string& path, EValue stored,
                      const std::vector<std::uint64_t>& offsets) {
  const auto file = std::make_shared<BareFile>(path, O_RDONLY);
  // From malloc, as the object's buffers are: where a buffer lies makes a few percent.
  const auto raw = std::make_shared<std::vector<double>>(workload.valueCount());
  const auto floats = std::make_shared<std::vector<float>>(workload.valueCount());
  const std::size_t bytes = workload.valueCount() * SizeOf(stored);
  return {"read", VisitPoses(workload, [=](unsigned int, unsigned int pose) {
            file->Read(raw->data(), bytes, offsets[pose]);
            if (stored == EValue::eDouble) {
              for (std::size_t i = 0; i < raw->size(); ++i) (*floats)[i] = float((*raw)[i]);
            }
            Keep(raw->data());
            Keep(floats->data());
          })};
}

Contender Opening(const std::shared_ptr<Object>& cache) {
  return {"open", [cache] {
            for (unsigned int i = 0; i < kOpenings; ++i) {
              Require((*cache)->OpenFileForRead(nullptr), "open");
              (*cache)->CloseFile(nullptr);
            }
          }};
}

Contender BareOpening(const std::string& path) {
  return {"bare open", [path] {
            for (unsigned int i = 0; i < kOpenings; ++i) {
              const BareFile file(path, O_RDONLY);
              struct stat entry = {};
              char header[64];
              Require(::fstat(file.Descriptor(), &entry) == 0, "fstat");
              Require(::pread(file.Descriptor(), header, sizeof header, 0) > 0, "pread");
            }
          }};
}

Contender Saving(const Contender& writing, std::function<void()> end,
                 std::function<void()> cleanUp) {
  return {writing.name,
          [writing, end = std::move(end)] {
            writing.before();
            writing.pass();
            end();
          },
          [] {}, std::move(cleanUp)};
}

std::vector<Contender> Together(Contender ours, Contender baseline, std::vector<Contender> peers) {
  peers.insert(peers.begin(), {std::move(ours), std::move(baseline)});
  return peers;
}

}  // namespace kelbench
