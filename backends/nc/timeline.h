#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace kelsdk::nc {

/// One sample of a channel, as an index holds it.
struct SampleEntry {
  std::int32_t tick = 0;
  std::uint32_t count = 0;       ///< elements
  std::uint64_t offset = 0;      ///< of the array in its file, bytes
  std::uint64_t storedSize = 0;  ///< bytes in the file; as many as the array has: stored raw
  std::uint64_t checksum = 0;    ///< of the array, decoded
};
static_assert(sizeof(SampleEntry) == 32, "an index in memory takes what it takes on disk");

/// Ascending times, kept as runs of equal steps: what a regular channel needs does not grow with
/// the number of its samples.
class TimeRuns {
 public:
  struct Run {
    std::int32_t start = 0;
    std::uint32_t step = 0;   ///< 0 for a single time
    std::uint32_t count = 0;  ///< at least 1
    std::uint32_t first = 0;  ///< samples before this run
    std::int64_t End() const { return start + std::int64_t{step} * (count - 1); }
  };

  /// Appends times after all that are here. False when the run is empty, goes back in time, leaves
  /// the range of ticks or makes more samples than 32 bits count. May throw std::bad_alloc.
  bool Append(std::int32_t start, std::uint32_t step, std::uint32_t count);
  /// Appends one later time, lengthening the last run where it fits.
  void Append(std::int32_t tick);

  const std::vector<Run>& Runs() const { return runs_; }
  std::uint32_t Count() const;
  std::int32_t At(std::uint32_t index) const;
  std::uint32_t CountUpTo(std::int64_t tick) const;

 private:
  std::vector<Run> runs_;
};

/// The times of one channel wherever they are kept. Refers to them: as short-lived as they are.
class Times {
 public:
  explicit Times(std::span<const SampleEntry> entries) : entries_(entries) {}
  explicit Times(const TimeRuns& runs) : runs_(&runs) {}

  std::uint32_t Count() const;
  std::int32_t At(std::uint32_t index) const;
  /// The samples at or before a tick.
  std::uint32_t CountUpTo(std::int64_t tick) const;

 private:
  std::span<const SampleEntry> entries_;
  const TimeRuns* runs_ = nullptr;
};

/// The sample that answers for a time: the one at that tick, else the one a tick later (times are
/// cut toward zero on their way in), else the last one before it. The last sample answers for
/// less than `interval` ticks.
std::optional<std::uint32_t> FindSample(const Times& times, std::int32_t tick,
                                        std::uint32_t interval);

/// The first time strictly after a tick.
std::optional<std::int32_t> NextTime(const Times& times, std::int32_t tick);

/// The one interval between all neighbours; 0 when they differ or there are fewer than two samples.
std::uint32_t CommonInterval(std::span<const SampleEntry> entries);
std::uint32_t CommonInterval(const TimeRuns& runs);

/// Puts a sample into its place by time; one of the same time is replaced. May throw
/// std::bad_alloc.
void InsertSample(std::vector<SampleEntry>* entries, const SampleEntry& entry);

}  // namespace kelsdk::nc
