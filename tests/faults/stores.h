#pragma once

#include <algorithm>
#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "cache/KelCache.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {

/// A kind of cache that can be written.
struct Store {
  const char* name;
  KelCache::EFileFormat format;
  KelCache::ENCFileCount files = KelCache::eNCSingleFile;
  KelCache::ENCBinaryFormat binary = KelCache::eNCBinaryX;

  bool IsNC() const { return format == KelCache::eNCFormat; }
};

inline constexpr Store kPC2 = {"PC2", KelCache::ePC2Format};
inline constexpr Store kStores[] = {
    kPC2,
    {"NC_ncx", KelCache::eNCFormat, KelCache::eNCSingleFile, KelCache::eNCBinaryX},
    {"NC_ncc", KelCache::eNCFormat, KelCache::eNCSingleFile, KelCache::eNCBinaryC},
    {"NC_frames_ncx", KelCache::eNCFormat, KelCache::eNCFilePerFrame, KelCache::eNCBinaryX},
    {"NC_frames_ncc", KelCache::eNCFormat, KelCache::eNCFilePerFrame, KelCache::eNCBinaryC},
};

inline constexpr unsigned int kPoints = 1000;
inline constexpr unsigned int kValues = 3 * kPoints;

/// The values of all channels, sample by sample. A sample that cannot be read is empty.
using Contents = std::vector<std::vector<double>>;

/// What a test writes into a cache: samples at frames 0, 1, ..., different for every seed.
struct Animation {
  unsigned int seed;
  unsigned int samples;
  unsigned int channels = 1;  ///< each of float vectors; a PC2 cache has one

  void Fill(unsigned int sample, unsigned int channel, double* values) const;
  Contents All() const;
};

/// A cache object with a manager of its own, its file named `path`.
class StoreObject {
 public:
  StoreObject(const Store& store, const std::string& path);
  ~StoreObject();
  StoreObject(const StoreObject&) = delete;
  StoreObject& operator=(const StoreObject&) = delete;
  KelCache* operator->() const { return cache; }

  KelCache* cache = nullptr;  ///< null when there was no memory

 private:
  KelManager* manager_;
};

/// How far a writer has come: 1 when open, then 1 more for each sample, before closing and after
/// it.
using Steps = std::atomic<unsigned int>;

/// Writes until something fails, and closes. Allocates nothing itself. Without `close` the object
/// is destroyed in its open state.
void WriteCache(const Store& store, const std::string& path, const Animation& animation,
                Steps& steps, bool close = true);

/// All that the cache hands out; nothing when it is refused.
std::optional<Contents> ReadCache(const Store& store, const std::string& path);

/// Completes what dead writers left of the cache "shot" in a folder, which ends in "/"; `samples`
/// are those that the recovered cache holds.
bool Recover(const Store& store, const std::string& path, const std::string& folder,
             unsigned int& samples);

/// Caches in a folder that can be set back to how it was.
class StoreTest : public FileTest {
 protected:
  StoreTest();
  ~StoreTest() override;
  std::string PathOf(const Store& store) const {
    return work_ + (store.IsNC() ? "shot.xml" : "shot.pc2");
  }
  void Keep();     ///< Keeps the folder as it is now.
  void Restore();  ///< Back to what was kept.

  /// After a writer of `newer` has ended in any way, `confirmed` of its samples being sure: what
  /// stands is `older` whole or `newer`, or can be recovered with no sample lost. Leaves nothing to
  /// recover. Returns the samples of `newer` that stand at the end.
  unsigned int ExpectNothingLost(const Store& store, const Animation& older, const Animation& newer,
                                 unsigned int confirmed);
  /// No file of an older cache or of a writer is left beside the cache.
  void ExpectOnlyFilesOf(const Store& store);
  bool Verifies(const Store& store) const;
  /// The samples whose writing has returned, of those that were to be written.
  unsigned int Confirmed(unsigned int samples) const {
    return std::min(samples, std::max(steps_.load(), 1U) - 1);
  }

  const std::string work_ = folder_.File("work/");
  Steps& steps_;  ///< in memory that child processes share

 private:
  void ExpectPutAside(const Contents& older, bool expected);

  const std::string kept_ = folder_.File("kept");
};

}  // namespace kelsdk::test
