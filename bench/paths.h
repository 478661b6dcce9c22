#pragma once

#include <memory>
#include <string>

#include "bench/peers.h"
#include "bench/table.h"
#include "cache/KelCache.h"

/// The paths through the object that are measured, and what they share.
namespace kelbench {

using kelsdk::KelCache;
using kelsdk::KelTime;

/// A workload, a folder for the caches made of it, and the peers' files of it, made when first
/// asked for.
class Case {
 public:
  explicit Case(Workload made) : workload(std::move(made)) {}
  PeerFiles& Floats() { return Peers(floats_, EValue::eFloat); }
  PeerFiles& Doubles() { return Peers(doubles_, EValue::eDouble); }

  const Workload workload;
  const Scratch scratch;

 private:
  PeerFiles& Peers(std::unique_ptr<PeerFiles>& peers, EValue stored) {
    if (peers == nullptr) peers = std::make_unique<PeerFiles>(workload, scratch, stored);
    return *peers;
  }

  std::unique_ptr<PeerFiles> floats_;
  std::unique_ptr<PeerFiles> doubles_;
};

/// A cache object for one file.
class Object {
 public:
  Object(KelCache::EFileFormat format, const std::string& path);
  ~Object() { manager_->Destroy(); }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  KelCache* operator->() const { return cache_; }

 private:
  kelsdk::KelManager* manager_;
  KelCache* cache_;
};

/// Bare system calls on one file.
class BareFile {
 public:
  BareFile(const std::string& path, int flags);
  ~BareFile();
  BareFile(const BareFile&) = delete;
  BareFile& operator=(const BareFile&) = delete;
  void Read(void* bytes, std::size_t count, std::uint64_t offset) const;
  void Write(const void* bytes, std::size_t count, std::uint64_t offset) const;
  void Sync() const;
  int Descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

/// The unified fetch of one frame; its values, which are as many as the workload has.
const float* Fetch(const Object& cache, const Workload& workload, unsigned int frame,
                   unsigned int channel);
/// The unified fetch of every pose. Compares them once with what was written: a comparison in
/// every pass would read as much memory again, which the bare reads do not.
Contender Fetching(const Workload& workload, const std::shared_ptr<Object>& cache);
/// The same bytes by bare reads, at an offset for each pose; doubles are converted to floats.
Contender BareReading(const Workload& workload, const std::string& path, EValue stored,
                      const std::vector<std::uint64_t>& offsets);
/// Opening and closing: an object's file, against opening a file, asking its size, reading its
/// first 64 bytes and closing it.
constexpr unsigned int kOpenings = 100;
Contender Opening(const std::shared_ptr<Object>& cache);
Contender BareOpening(const std::string& path);
/// A way of writing, with its beginning and with what makes the file durable.
Contender Saving(const Contender& writing, std::function<void()> end,
                 std::function<void()> cleanUp);
/// `ours`, `baseline`, then the peers.
std::vector<Contender> Together(Contender ours, Contender baseline, std::vector<Contender> peers);

void MeasurePC2(Table& table, Case& in);
void MeasureNC(Table& table, Case& in);
/// The compact form alone.
void MeasureCompact(Table& table, Case& in);
void MeasureAlembic(Table& table, Case& in);
void MeasureConversions(Table& table, Case& in);
/// Eight NC channels at each time, read by whole time blocks and not.
void MeasureChannels(Table& table, unsigned int points);
/// An archive of 1,000 meshes.
void MeasureMeshes(Table& table, unsigned int points);
/// An archive of 5,000 meshes x 24 frames: opening it with the first frame of all, and all frames.
void MeasureScene(Table& table, unsigned int points);
/// Frames that the system has dropped from memory, fetched with 5 ms of work between them.
void MeasureCold(Table& table);

}  // namespace kelbench
