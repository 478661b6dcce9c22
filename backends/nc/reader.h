#pragma once

#include <string>
#include <vector>

#include "backends/nc/arrays.h"
#include "backends/nc/data_reader.h"
#include "backends/nc/open_cache.h"
#include "backends/nc/prefetch.h"

namespace kelsdk::nc {

/// A cache open for reading.
class CacheReader : public OpenCache {
 public:
  /// Single-file layout: reads the description and the end of the data file. Per-frame layout:
  /// reads the description alone.
  bool Open(const CacheName& name, io::Error& error);

  /// With it on, a read takes along the arrays beside it that its caller has been reading at each
  /// time.
  void SetPrefetching(bool enable) { prefetches_ = enable; }

  /// Bytes of all arrays of a cache in one file, each counted once: by themselves and as stored.
  bool SumArrays(std::uint64_t* arrayBytes, std::uint64_t* storedBytes, io::Error& error);

  const Description& Info() const override { return description_; }
  Extent ExtentOf(std::uint32_t channel) const override;
  bool TimesOf(std::uint32_t channel, Times* times, io::Error& error) override;
  bool Locate(std::uint32_t channel, std::uint32_t sample, SampleEntry* entry,
              io::Error& error) override;
  bool Fetch(std::uint32_t channel, const SampleEntry& entry, std::int32_t tick, void* array,
             io::Error& error) override;
  DataFiles Files() const override { return {name_.base, description_}; }

 private:
  bool OpenSingle(io::Error& error);
  bool OpenFrame(std::int32_t tick, io::Error& error);
  bool CheckAgainstDescription(io::Error& error) const;
  bool EntryAt(std::uint32_t channel, std::int32_t tick, SampleEntry* entry);
  FileRange ChooseRange(std::uint32_t channel, const SampleEntry& entry, const FileRange& own);
  EType TypeOf(std::uint32_t channel) const { return description_.channels[channel].type; }

  CacheName name_;
  Description description_;
  std::vector<Extent> extents_;           // per-frame layout: by channel
  DataReader data_;                       // the data file, or that of the time read last
  std::optional<std::int32_t> openTick_;  // per-frame layout: whose file is open
  std::string fileName_;
  std::string path_;
  ArrayReader arrays_;
  bool prefetches_ = false;
  Prefetch prefetch_;
};

}  // namespace kelsdk::nc
