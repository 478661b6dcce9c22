#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "backends/zuPointCache2IO.h"
#include "tests/cache/cache_test.h"

namespace kelsdk::test {

namespace fs = std::filesystem;

/// A kind of cache that can be written.
struct Store {
  const char* name;
  KelCache::EFileFormat format;
  KelCache::ENCFileCount files = KelCache::eNCSingleFile;
  KelCache::ENCBinaryFormat binary = KelCache::eNCBinaryX;

  bool IsNC() const { return format == KelCache::eNCFormat; }
  friend void PrintTo(const Store& store, std::ostream* out) { *out << store.name; }
};

inline constexpr Store kPC2 = {"PC2", KelCache::ePC2Format};
inline constexpr Store kStores[] = {
    kPC2,
    {"NC_ncx", KelCache::eNCFormat},
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

  void Fill(unsigned int sample, unsigned int channel, double* values) const {
    for (unsigned int i = 0; i < kValues; ++i) {
      values[i] = 1000 * seed + 100 * channel + sample + 0.25 * (i % 64);
    }
  }

  Contents All() const {
    Contents all(samples, std::vector<double>(channels * kValues));
    for (unsigned int i = 0; i < samples * channels; ++i) {
      Fill(i / channels, i % channels, &all[i / channels][i % channels * kValues]);
    }
    return all;
  }
};

inline bool OpenForWrite(const Store& store, KelCache* cache, const Animation& animation) {
  if (!store.IsNC()) {
    return cache->OpenFileForWrite(0, 24, animation.samples, kPoints, nullptr);
  }
  constexpr auto kType = KelCache::eNCFloatVectorArray;
  unsigned int channel = 0;
  return cache->OpenFileForWrite(store.files, 24, "first", store.binary, kType, "", nullptr) &&
         (animation.channels == 1 || cache->AddChannel("second", kType, "", channel, nullptr));
}

inline bool WriteSample(const Store& store, KelCache* cache, const Animation& animation,
                        unsigned int sample) {
  double values[kValues];
  animation.Fill(sample, 0, values);
  if (!store.IsNC()) return cache->Write(sample, values, nullptr);
  KelTime time = KelTime::FromFrame(sample);
  if (!cache->BeginWriteAt(time, nullptr)) return false;
  for (unsigned int channel = 0; channel < animation.channels; ++channel) {
    animation.Fill(sample, channel, values);
    if (!cache->Write(static_cast<int>(channel), time, values, kPoints, nullptr)) return false;
  }
  return cache->EndWriteAt(nullptr);
}

/// How far a writer has come: 1 when open, then 1 more for each sample, before closing and after
/// it.
using Steps = std::atomic<unsigned int>;

/// Writes until something fails, and closes. Allocates nothing itself. Without `close` the object
/// is destroyed in its open state.
inline void WriteCache(const Store& store, const std::string& path, const Animation& animation,
                       Steps& steps, bool close = true) {
  steps = 0;
  const CacheObject object(store.format, path);
  if (object.get() == nullptr || !OpenForWrite(store, object.get(), animation)) return;
  ++steps;
  while (steps <= animation.samples && WriteSample(store, object.get(), animation, steps - 1)) {
    ++steps;
  }
  if (!close) return;
  const unsigned int step = steps > animation.samples ? 1 : 0;
  steps += step;
  object->CloseFile(nullptr);
  steps += step;
}

/// All that the cache hands out; nothing when it is refused.
inline std::optional<Contents> ReadCache(const Store& store, const std::string& path) {
  const CacheObject object(store.format, path);
  KelCache* const cache = object.get();
  if (!cache->OpenFileForRead(nullptr)) return std::nullopt;
  const auto channels = static_cast<unsigned int>(cache->GetChannelCount(nullptr));
  Contents contents(store.IsNC() ? cache->GetDataCount(0, nullptr)
                                 : cache->GetSampleCount(nullptr));
  for (unsigned int i = 0; i < contents.size() * channels; ++i) {
    std::vector<double>& sample = contents[i / channels];
    const KelTime time = KelTime::FromFrame(i / channels);
    float* values = nullptr;
    unsigned int length = 0;
    const bool isWhole = sample.size() == i % channels * kValues;  // up to here
    if (isWhole && cache->Read(&values, length, time, i % channels)) {
      sample.insert(sample.end(), values, values + length);
    } else {
      sample.clear();
    }
  }
  return contents;
}

/// Completes what dead writers left of the cache "shot" in a folder, which ends in "/"; `samples`
/// are those that the recovered cache holds.
inline bool Recover(const Store& store, const std::string& path, const std::string& folder,
                    bool force, unsigned int& samples) {
  samples = 0;
  zuCacheFileInterface::recoverOptions ofNC;
  zuPointCache2IO::recoverOptions ofPC2;
  ofNC.force = ofPC2.force = force;
  return store.IsNC() ? zuCacheFileInterface::recover(folder.c_str(), "shot", ofNC, samples,
                                                      nullptr, nullptr)
                      : zuPointCache2IO::recover(path.c_str(), ofPC2, samples, nullptr, nullptr);
}

// Of a sample that was not confirmed may be there: all of it, nothing or, in a file made in its
// full length, zeros.
inline bool Holds(const Contents& found, const Contents& newer, std::size_t confirmed) {
  if (found.size() < confirmed || found.size() > newer.size()) return false;
  for (std::size_t i = 0; i < found.size(); ++i) {
    const bool isBlank = found[i].empty() || found[i] == std::vector<double>(newer[i].size());
    if (found[i] != newer[i] && (i < confirmed || !isBlank)) return false;
  }
  return true;
}

// Between the renames of an NC cache single files of the older one may be gone already.
inline bool IsPartOf(const Contents& found, const Contents& older) {
  return found.size() == older.size() &&
         std::equal(found.begin(), found.end(), older.begin(),
                    [](const auto& a, const auto& b) { return a.empty() || a == b; });
}

/// Caches in a folder that can be set back to how it was.
class StoreTest : public FileTest {
 protected:
  StoreTest()
      : steps_(*new (::mmap(nullptr, sizeof(Steps), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Steps()) {
    fs::create_directory(work_);
  }
  ~StoreTest() override { ::munmap(&steps_, sizeof steps_); }

  std::string PathOf(const Store& store) const {
    return work_ + (store.IsNC() ? "shot.xml" : "shot.pc2");
  }

  // Keeps the folder as it is now.
  void Keep() {
    fs::remove_all(kept_);
    fs::rename(work_, kept_);
    Restore();
  }

  void Restore() {
    fs::remove_all(work_);
    fs::copy(kept_, work_, fs::copy_options::recursive);
    // The times tell older files from newer.
    for (const auto& entry : fs::recursive_directory_iterator(kept_)) {
      fs::last_write_time(work_ / fs::relative(entry.path(), kept_),
                          fs::last_write_time(entry.path()));
    }
  }

  bool Verifies(const Store& store, const std::string& cache = "shot.xml") const {
    const std::string base = cache.substr(0, cache.size() - 4);
    return !store.IsNC() ||
           zuCacheFileInterface::verify(work_.c_str(), base.c_str(), nullptr, nullptr);
  }

  // The samples whose writing has returned, of those that were to be written.
  unsigned int Confirmed(unsigned int samples) const {
    return std::min(samples, std::max(steps_.load(), 1U) - 1);
  }

  /// What may be of the older cache, and of the newer, after an operation that was interrupted.
  struct Allowed {
    bool endsEarly = false;   ///< the newer one may stand without the last samples that it was to
                              ///< have, as after one that the object itself could not take
    bool olderGone = true;    ///< the operation was to replace the older one
    bool otherNames = false;  ///< the older one may be whole though its replacement had begun
    bool force = false;       ///< recover into the place of the older one
  };

  // After a writer of `newer` has ended in any way, `confirmed` of its samples being sure: what
  // stands is `older` whole or `newer`, or can be recovered with no sample lost, and while `older`
  // stands whole it is not lost by that. Leaves nothing to recover. Returns the samples of `newer`
  // that stand at the end.
  unsigned int ExpectNothingLost(const Store& store, const Animation& older, const Animation& newer,
                                 unsigned int confirmed, const Allowed& allowed) {
    const std::string path = PathOf(store);
    const Contents before = older.All();
    const Contents after = newer.All();
    const std::optional<Contents> found = ReadCache(store, path);
    const bool isNewer =
        found && Holds(*found, after, allowed.endsEarly ? confirmed : after.size());
    EXPECT_TRUE(isNewer || found == before ||
                (store.IsNC() && (!found || IsPartOf(*found, before))))
        << "neither the older cache nor the newer";
    unsigned int saved = 0;
    const bool recovered = Recover(store, path, work_, allowed.force, saved);
    std::optional<unsigned int> stands;
    unsigned int olderCaches = 0;
    for (const std::string& cache : Caches(store)) {
      EXPECT_TRUE(Verifies(store, cache)) << cache;
      const std::optional<Contents> contents = ReadCache(store, work_ + cache);
      if (contents == before) {
        ++olderCaches;
      } else if (contents && Holds(*contents, after, confirmed)) {
        EXPECT_FALSE(stands) << "recovered twice";
        stands = static_cast<unsigned int>(contents->size());
      } else {
        ADD_FAILURE() << cache << " is neither the older cache nor the newer";
      }
    }
    EXPECT_TRUE(stands || confirmed == 0) << "samples lost";
    EXPECT_TRUE(!recovered || stands == saved) << "recovered " << saved;
    const bool hadBegun = found != before || allowed.otherNames || !recovered;
    EXPECT_EQ(olderCaches, (allowed.olderGone && stands && hadBegun) ? olderCaches : 1U)
        << "the older cache lost, or kept twice";
    EXPECT_FALSE(Recover(store, path, work_, allowed.force, saved)) << "there is nothing left";
    return stands.value_or(0);
  }

  // Nothing but whole caches is left in the folder.
  void ExpectOnlyFilesOfCaches(const Store& store) {
    std::size_t files = 0;
    for (const std::string& cache : Caches(store)) {
      const CacheObject object(store.format, work_ + cache);
      EXPECT_TRUE(object->OpenFileForRead(nullptr));
      files += 1;
      if (store.IsNC()) files += static_cast<std::size_t>(object->GetCacheDataFileCount(nullptr));
    }
    EXPECT_EQ(NamesIn(work_).size(), files);
  }

  const std::string work_ = folder_.File("work/");
  Steps& steps_;  ///< in memory that child processes share

 private:
  // The caches of a format in the folder.
  std::vector<std::string> Caches(const Store& store) const {
    std::vector<std::string> caches = NamesIn(work_);
    std::erase_if(caches, [&](const std::string& name) {
      return !name.ends_with(store.IsNC() ? ".xml" : ".pc2");
    });
    return caches;
  }

  const std::string kept_ = folder_.File("kept");
};

}  // namespace kelsdk::test
