#include "backends/nc/timeline.h"

#include <algorithm>
#include <limits>

namespace kelsdk::nc {
namespace {

std::uint32_t Distance(std::int32_t earlier, std::int32_t later) {
  return static_cast<std::uint32_t>(std::int64_t{later} - earlier);
}

bool IsBefore(const SampleEntry& entry, std::int64_t tick) {
  return entry.tick < tick;
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

std::uint32_t Times::Count() const {
  return runs_ != nullptr ? runs_->Count() : static_cast<std::uint32_t>(entries_.size());
}

std::int32_t Times::At(std::uint32_t index) const {
  return runs_ != nullptr ? runs_->At(index) : entries_[index].tick;
}

std::uint32_t Times::CountUpTo(std::int64_t tick) const {
  if (runs_ != nullptr) return runs_->CountUpTo(tick);
  const auto after = std::lower_bound(entries_.begin(), entries_.end(), tick + 1, IsBefore);
  return static_cast<std::uint32_t>(after - entries_.begin());
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

std::uint32_t CommonInterval(std::span<const SampleEntry> entries) {
  if (entries.size() < 2) return 0;
  const std::uint32_t interval = Distance(entries[0].tick, entries[1].tick);
  for (std::size_t i = 2; i < entries.size(); ++i) {
    if (Distance(entries[i - 1].tick, entries[i].tick) != interval) return 0;
  }
  return interval;
}

std::uint32_t CommonInterval(const TimeRuns& times) {
  if (times.Count() < 2) return 0;
  const std::uint32_t interval = Distance(times.At(0), times.At(1));
  const std::vector<TimeRuns::Run>& runs = times.Runs();
  for (std::size_t i = 0; i < runs.size(); ++i) {
    if (runs[i].count > 1 && runs[i].step != interval) return 0;
    if (i > 0 && runs[i].start - runs[i - 1].End() != std::int64_t{interval}) return 0;
  }
  return interval;
}

void InsertSample(std::vector<SampleEntry>* entries, const SampleEntry& entry) {
  if (entries->empty() || entries->back().tick < entry.tick) {
    entries->push_back(entry);
    return;
  }
  const auto place = std::lower_bound(entries->begin(), entries->end(), entry.tick, IsBefore);
  if (place->tick == entry.tick) {
    *place = entry;
  } else {
    entries->insert(place, entry);
  }
}

}  // namespace kelsdk::nc
