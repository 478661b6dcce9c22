#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "backends/zuPointCache2IO.h"
#include "cache/KelCache.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {

namespace fs = std::filesystem;

/// A kind of cache that can be written.
struct Store {
  const char* name;
  KelCache::EFileFormat format;
  KelCache::ENCFileCount files = KelCache::eNCSingleFile;
  KelCache::ENCBinaryFormat binary = KelCache::eNCBinaryX;

  bool IsNC() const { return format == KelCache::eNCFormat; }
};

inline void PrintTo(const Store& store, std::ostream* out) {
  *out << store.name;
}

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

  void Fill(unsigned int sample, unsigned int channel, double* values) const {
    for (unsigned int i = 0; i < kValues; ++i) {
      values[i] = 1000 * seed + 100 * channel + sample + 0.25 * (i % 64);
    }
  }

  Contents All() const {
    Contents all;
    for (unsigned int sample = 0; sample < samples; ++sample) {
      std::vector<double>& values = all.emplace_back(channels * kValues);
      for (unsigned int channel = 0; channel < channels; ++channel) {
        Fill(sample, channel, &values[channel * kValues]);
      }
    }
    return all;
  }
};

/// A cache object with a manager of its own, its file named `path`.
class StoreObject {
 public:
  StoreObject(const Store& store, const std::string& path) : manager_(KelManager::Create()) {
    cache = manager_ != nullptr ? KelCache::Create(manager_, "cache") : nullptr;
    if (cache == nullptr) return;
    cache->SetCacheFileFormat(store.format, nullptr);
    cache->SetCacheFileName("", path.c_str(), nullptr);
  }
  ~StoreObject() {
    if (manager_ != nullptr) manager_->Destroy();
  }
  StoreObject(const StoreObject&) = delete;
  StoreObject& operator=(const StoreObject&) = delete;
  KelCache* operator->() const { return cache; }

  KelCache* cache = nullptr;  ///< null when there was no memory

 private:
  KelManager* manager_;
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

// As short as can be, but lets the other process run.
inline void Pause() {
  ::usleep(10);
}

/// How far a writer has come: 1 when open, then 1 more for each sample, before closing and after
/// it. A writer waits where it has come further than it may.
struct Steps {
  std::atomic<unsigned int> done{0};
  std::atomic<unsigned int> may{~0U};

  void Next() {
    ++done;
    while (done > may) Pause();
  }
};

/// Writes until something fails, and closes. Allocates nothing itself. Without `close` the object
/// is destroyed in its open state.
inline void WriteCache(const Store& store, const std::string& path, const Animation& animation,
                       Steps& steps, bool close = true) {
  steps.done = 0;
  const StoreObject object(store, path);
  if (object.cache == nullptr || !OpenForWrite(store, object.cache, animation)) return;
  steps.Next();
  unsigned int sample = 0;
  while (sample < animation.samples && WriteSample(store, object.cache, animation, sample)) {
    steps.Next();
    ++sample;
  }
  if (!close) return;
  const bool isWhole = sample == animation.samples;
  if (isWhole) steps.Next();
  object->CloseFile(nullptr);
  if (isWhole) steps.Next();
}

/// All that the cache hands out; nothing when it is refused.
inline std::optional<Contents> ReadCache(const Store& store, const std::string& path) {
  const StoreObject object(store, path);
  KelCache* const cache = object.cache;
  if (!cache->OpenFileForRead(nullptr)) return std::nullopt;
  const auto channels = static_cast<unsigned int>(cache->GetChannelCount(nullptr));
  Contents contents(store.IsNC() ? cache->GetDataCount(0, nullptr)
                                 : cache->GetSampleCount(nullptr));
  for (unsigned int sample = 0; sample < contents.size(); ++sample) {
    for (unsigned int channel = 0; channel < channels; ++channel) {
      float* values = nullptr;
      unsigned int length = 0;
      if (!cache->Read(&values, length, KelTime::FromFrame(sample), channel)) {
        contents[sample].clear();
        break;
      }
      contents[sample].insert(contents[sample].end(), values, values + length);
    }
  }
  return contents;
}

/// Completes what dead writers left of the cache "shot" in a folder, which ends in "/"; `samples`
/// are those that the recovered cache holds.
inline bool Recover(const Store& store, const std::string& path, const std::string& folder,
                    unsigned int& samples) {
  samples = 0;
  return store.IsNC()
             ? zuCacheFileInterface::recover(folder.c_str(), "shot", samples, nullptr, nullptr)
             : zuPointCache2IO::recover(path.c_str(), samples, nullptr, nullptr);
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
    fs::copy(work_, kept_, fs::copy_options::recursive);
  }

  void Restore() {
    fs::remove_all(work_);
    fs::copy(kept_, work_, fs::copy_options::recursive);
  }

  bool Verifies(const Store& store) const {
    return !store.IsNC() || zuCacheFileInterface::verify(work_.c_str(), "shot", nullptr, nullptr);
  }

  // The samples whose writing has returned, of those that were to be written.
  unsigned int Confirmed(unsigned int samples) const {
    return std::min(samples, std::max(steps_.done.load(), 1U) - 1);
  }

  // After a writer of `newer` has ended in any way, `confirmed` of its samples being sure: what
  // stands is `older` whole or `newer`, or can be recovered with no sample lost. Leaves nothing to
  // recover. Returns the samples of `newer` that stand at the end. `endsEarly`: the newer one may
  // stand without the others, as after a sample that the object itself could not take.
  unsigned int ExpectNothingLost(const Store& store, const Animation& older, const Animation& newer,
                                 unsigned int confirmed, bool endsEarly = false) {
    const std::string path = PathOf(store);
    const Contents before = older.All();
    const Contents after = newer.All();
    std::optional<Contents> found = ReadCache(store, path);
    const bool isNewer = found && Holds(*found, after, endsEarly ? confirmed : after.size());
    EXPECT_TRUE(isNewer || found == before ||
                (store.IsNC() && (!found || IsPartOf(*found, before))))
        << "neither the older cache nor the newer";
    unsigned int saved = 0;
    const bool recovered = Recover(store, path, work_, saved);
    found = ReadCache(store, path);
    EXPECT_TRUE(Verifies(store));
    const bool stands = found && Holds(*found, after, confirmed);
    if (recovered) {
      EXPECT_TRUE(stands) << "recovered " << saved << " of " << confirmed;
      EXPECT_EQ(found->size(), saved);
    } else if (!stands) {
      EXPECT_EQ(confirmed, 0U) << "samples lost";
      EXPECT_TRUE(found == before) << "the older cache lost";
    }
    ExpectPutAside(before, !store.IsNC() && recovered);
    EXPECT_FALSE(Recover(store, path, work_, saved)) << "there is nothing left";
    return stands ? static_cast<unsigned int>(found->size()) : 0;
  }

  // No file of an older cache or of a writer is left beside the cache.
  void ExpectOnlyFilesOf(const Store& store) {
    const StoreObject object(store, PathOf(store));
    EXPECT_TRUE(object->OpenFileForRead(nullptr));
    const int dataFiles = store.IsNC() ? object->GetCacheDataFileCount(nullptr) : 0;
    EXPECT_EQ(NamesIn(work_).size(), static_cast<std::size_t>(dataFiles) + 1);
  }

  const std::string work_ = folder_.File("work/");
  Steps& steps_;  ///< in memory that child processes share

 private:
  // Recovering a PC2 file puts the older one aside, again when it is interrupted. Removes it.
  void ExpectPutAside(const Contents& older, bool expected) {
    unsigned int found = 0;
    for (const std::string& name : NamesIn(work_)) {
      if (name.find(".before-recover") == std::string::npos) continue;
      ++found;
      fs::rename(work_ + name, work_ + "older.pc2");
      EXPECT_TRUE(ReadCache(kPC2, work_ + "older.pc2") == older) << "the older cache lost";
      fs::remove(work_ + "older.pc2");
    }
    EXPECT_TRUE(found > 0 || !expected);
  }

  const std::string kept_ = folder_.File("kept");
};

}  // namespace kelsdk::test
