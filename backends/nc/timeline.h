#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
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
static_assert(sizeof(SampleEntry) == 32 && offsetof(SampleEntry, tick) == 0,
              "an index in memory takes what it takes on disk");

/// The samples of a channel at a glance.
struct Extent {
  std::uint32_t count = 0;
  std::int32_t first = 0;  ///< ticks; 0 without a sample
  std::int32_t last = 0;   ///< ticks; 0 without a sample
  std::uint32_t interval =
      0;  ///< ticks between all neighbours; 0: they differ, or below two samples
};

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
  std::uint32_t CommonInterval() const;

 private:
  std::vector<Run> runs_;
};

/// Ascending times wherever they are kept. Refers to them: as short-lived as they are.
class Times {
 public:
  Times() = default;
  explicit Times(std::span<const SampleEntry> entries)
      : Times(entries.data(), sizeof(SampleEntry), entries.size()) {}
  explicit Times(std::span<const std::int32_t> ticks)
      : Times(ticks.data(), sizeof(std::int32_t), ticks.size()) {}
  explicit Times(const TimeRuns& runs) : runs_(&runs) {}

  std::uint32_t Count() const { return runs_ != nullptr ? runs_->Count() : count_; }
  std::int32_t At(std::uint32_t index) const {
    if (runs_ != nullptr) return runs_->At(index);
    std::int32_t tick = 0;
    std::memcpy(&tick, first_ + index * stride_, sizeof tick);
    return tick;
  }
  /// The times at or before a tick.
  std::uint32_t CountUpTo(std::int64_t tick) const;
  /// The time at exactly a tick.
  std::optional<std::uint32_t> Find(std::int32_t tick) const;
  /// The one interval between all neighbours; 0 when they differ or there are fewer than two.
  std::uint32_t CommonInterval() const;
  Extent ToExtent() const;

 private:
  Times(const void* first, std::size_t stride, std::size_t count)
      : first_(static_cast<const std::uint8_t*>(first)),
        stride_(stride),
        count_(static_cast<std::uint32_t>(count)) {}

  const std::uint8_t* first_ = nullptr;  // the ticks, so many bytes apart
  std::size_t stride_ = 0;
  std::uint32_t count_ = 0;
  const TimeRuns* runs_ = nullptr;
};

/// The entry at exactly a tick; null when there is none.
const SampleEntry* FindEntry(std::span<const SampleEntry> entries, std::int32_t tick);

/// The sample that answers for a time: the one at that tick, else the one a tick later (times are
/// cut toward zero on their way in), else the last one before it. The last sample answers for
/// less than `interval` ticks.
std::optional<std::uint32_t> FindSample(const Times& times, std::int32_t tick,
                                        std::uint32_t interval);

/// The first time strictly after a tick.
std::optional<std::int32_t> NextTime(const Times& times, std::int32_t tick);

/// Puts a sample into its place by time; one of the same time is replaced. May throw
/// std::bad_alloc.
void InsertSample(std::vector<SampleEntry>* entries, const SampleEntry& entry);

}  // namespace kelsdk::nc
