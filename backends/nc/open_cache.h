#pragma once

#include <cstdint>

#include "backends/io/error.h"
#include "backends/nc/data_files.h"
#include "backends/nc/description.h"
#include "backends/nc/timeline.h"

namespace kelsdk::nc {

/// An open cache, being read or being written: what catalogue, time and data queries ask of it.
/// Channel and sample numbers are in range. Operations may throw std::bad_alloc.
class OpenCache {
 public:
  virtual ~OpenCache() = default;

  virtual const Description& Info() const = 0;
  virtual Extent ExtentOf(std::uint32_t channel) const = 0;
  /// Valid until the cache is written to or another array is read.
  virtual bool TimesOf(std::uint32_t channel, Times* times, io::Error& error) = 0;
  /// Where the array of a sample is, and how long.
  virtual bool Locate(std::uint32_t channel, std::uint32_t sample, SampleEntry* entry,
                      io::Error& error) = 0;
  /// Reads the array that Locate has just found, with room enough in `array`. `tick` is the time
  /// the caller asked for.
  virtual bool Fetch(std::uint32_t channel, const SampleEntry& entry, std::int32_t tick,
                     void* array, io::Error& error) = 0;
  virtual DataFiles Files() const = 0;
};

/// Equal intervals, or fewer than two samples.
bool IsRegular(const Extent& extent);

/// The interval between two samples of a regular channel, and what the last sample of any channel
/// holds for: that of the channel, else the one declared for it, else the ticks per frame.
std::uint32_t SamplingInterval(const OpenCache& cache, std::uint32_t channel);

/// The sample that answers for a time. False, with `error` set, when none does.
bool FindSampleAt(OpenCache& cache, std::uint32_t channel, std::int32_t tick, SampleEntry* entry,
                  io::Error& error);

}  // namespace kelsdk::nc
