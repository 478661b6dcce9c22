#include "backends/nc/timeline.h"

#include <algorithm>
#include <limits>

namespace kelsdk::nc {
namespace {

std::uint32_t Distance(std::int32_t earlier, std::int32_t later) {
  return static_cast<std::uint32_t>(std::int64_t{later} - earlier);
}

}  // namespace

bool TimeRuns::Append(std::int32_t start, std::uint32_t step, std::uint32_t count) {
  if (count == 0 || (count > 1 && step == 0)) return false;
  const Run run{start, count > 1 ? step : 0, count, Count()};
  // The largest product is below 2^64 and the test must not rest on its sign.
  const std::uint64_t length = std::uint64_t{run.step} * (count - 1);
  if (length > Distance(start, std::numeric_limits<std::int32_t>::max())) return false;
  if (count > std::numeric_limits<std::uint32_t>::max() - run.first) return false;
  if (!runs_.empty() && start <= runs_.back().End()) return false;
  runs_.push_back(run);
  return true;
}

void TimeRuns::Append(std::int32_t tick) {
  if (!runs_.empty()) {
    Run& last = runs_.back();
    const std::uint32_t step = Distance(static_cast<std::int32_t>(last.End()), tick);
    if (last.count == 1 || last.step == step) {
      last.step = step;
      ++last.count;
      return;
    }
  }
  runs_.push_back({tick, 0, 1, Count()});
}

std::uint32_t TimeRuns::Count() const {
  return runs_.empty() ? 0 : runs_.back().first + runs_.back().count;
}

std::int32_t TimeRuns::At(std::uint32_t index) const {
  const auto after =
      std::upper_bound(runs_.begin(), runs_.end(), index,
                       [](std::uint32_t i, const Run& run) { return i < run.first; });
  const Run& run = *(after - 1);
  return static_cast<std::int32_t>(run.start + std::int64_t{run.step} * (index - run.first));
}

std::uint32_t TimeRuns::CountUpTo(std::int64_t tick) const {
  const auto after = std::upper_bound(runs_.begin(), runs_.end(), tick,
                                      [](std::int64_t t, const Run& run) { return t < run.start; });
  if (after == runs_.begin()) return 0;
  const Run& run = *(after - 1);
  if (tick >= run.End()) return run.first + run.count;
  return run.first + static_cast<std::uint32_t>((tick - run.start) / run.step) + 1;
}

std::uint32_t TimeRuns::CommonInterval() const {
  if (Count() < 2) return 0;
  const std::uint32_t interval = Distance(At(0), At(1));
  for (std::size_t i = 0; i < runs_.size(); ++i) {
    if (runs_[i].count > 1 && runs_[i].step != interval) return 0;
    if (i > 0 && runs_[i].start - runs_[i - 1].End() != std::int64_t{interval}) return 0;
  }
  return interval;
}

std::uint32_t Times::CountUpTo(std::int64_t tick) const {
  if (runs_ != nullptr) return runs_->CountUpTo(tick);
  if (count_ == 0 || tick < At(0)) return 0;
  if (tick >= At(count_ - 1)) return count_;
  // Where the times are evenly spaced, as most are, the first look finds the place.
  const auto passed = static_cast<std::uint64_t>(tick - At(0));
  const auto whole = static_cast<std::uint64_t>(std::int64_t{At(count_ - 1)} - At(0));
  const auto guess = static_cast<std::uint32_t>(passed * (count_ - 1) / whole);
  if (At(guess) <= tick && At(guess + 1) > tick) return guess + 1;
  std::uint32_t low = 0;
  std::uint32_t high = count_;
  while (low < high) {
    const std::uint32_t middle = low + (high - low) / 2;
    if (At(middle) <= tick) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

std::optional<std::uint32_t> Times::Find(std::int32_t tick) const {
  const std::uint32_t upTo = CountUpTo(tick);
  if (upTo == 0 || At(upTo - 1) != tick) return std::nullopt;
  return upTo - 1;
}

std::uint32_t Times::CommonInterval() const {
  if (runs_ != nullptr) return runs_->CommonInterval();
  if (count_ < 2) return 0;
  const std::uint32_t interval = Distance(At(0), At(1));
  for (std::uint32_t i = 2; i < count_; ++i) {
    if (Distance(At(i - 1), At(i)) != interval) return 0;
  }
  return interval;
}

Extent Times::ToExtent() const {
  const std::uint32_t count = Count();
  if (count == 0) return {};
  return {count, At(0), At(count - 1), CommonInterval()};
}

const SampleEntry* FindEntry(std::span<const SampleEntry> entries, std::int32_t tick) {
  const auto found = Times(entries).Find(tick);
  return found ? &entries[*found] : nullptr;
}

std::optional<std::uint32_t> FindSample(const Times& times, std::int32_t tick,
                                        std::uint32_t interval) {
  const std::uint32_t upTo = times.CountUpTo(tick);
  if (upTo > 0 && times.At(upTo - 1) == tick) return upTo - 1;
  const bool isLast = upTo == times.Count();
  if (!isLast && times.At(upTo) == std::int64_t{tick} + 1) return upTo;
  if (upTo == 0) return std::nullopt;
  if (isLast && Distance(times.At(upTo - 1), tick) >= interval) return std::nullopt;
  return upTo - 1;
}

std::optional<std::int32_t> NextTime(const Times& times, std::int32_t tick) {
  const std::uint32_t upTo = times.CountUpTo(tick);
  if (upTo == times.Count()) return std::nullopt;
  return times.At(upTo);
}

void InsertSample(std::vector<SampleEntry>* entries, const SampleEntry& entry) {
  if (entries->empty() || entries->back().tick < entry.tick) {
    entries->push_back(entry);
    return;
  }
  const std::uint32_t upTo = Times(*entries).CountUpTo(entry.tick);
  if (upTo > 0 && (*entries)[upTo - 1].tick == entry.tick) {
    (*entries)[upTo - 1] = entry;
  } else {
    entries->insert(entries->begin() + upTo, entry);
  }
}

}  // namespace kelsdk::nc
