#include "tools/timeline.h"

#include <algorithm>
#include <map>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

constexpr std::size_t kMostMoments = 1000000;
constexpr std::size_t kMostPlaces = 100000000;  // moments x clocks
constexpr double kSameTicks = kSameClock * kTicksPerSecond;

// Which of several samples at one time it is: those of a PC2 cache without a rate all share theirs.
std::vector<std::uint32_t> TurnsOf(const std::vector<Timeline::Point>& points) {
  std::vector<std::uint32_t> turns(points.size());
  for (std::size_t i = 1; i < points.size(); ++i) {
    const bool again = points[i].ticks - points[i - 1].ticks <= kSameTicks;
    turns[i] = again ? turns[i - 1] + 1 : 0;
  }
  return turns;
}

// What tells the clocks of a cache apart: samples follow one another.
std::vector<double> KeyOf(const std::vector<Timeline::Point>& points,
                          const std::vector<std::uint64_t>& samples) {
  std::vector<double> key = {samples.empty() ? -1.0 : double(samples.front())};
  for (const Timeline::Point& point : points) key.push_back(point.ticks);
  return key;
}

// Those of the range, with the one that is current where it begins.
MomentRange WithHeld(Moments& moments, const MomentRange& part, const FrameRange& range,
                     bool showsFirst) {
  if (moments.Descends() || !range.from || moments.count() == 0) return part;
  const MomentRange upToBegin = moments.In({.from = {}, .to = range.from});
  if (upToBegin.Count() == 0 && !showsFirst) return part;
  const std::uint64_t held = std::max<std::uint64_t>(upToBegin.end, 1) - 1;
  if (part.Count() == 0) return {held, held + 1};
  return {std::min(held, part.first), part.end};
}

ToolError TooMany(const Source& source) {
  return Failed(source.summary().file, "has more than " + std::to_string(kMostMoments) +
                                           " moments; take a part of it by --from and --to");
}

}  // namespace

Timeline::Clock Timeline::ClockFor(Source& source, const ChannelSummary& channel,
                                   const FrameRange& range, Watch& watch) {
  Moments moments = source.MomentsOf(channel);
  const bool showsFirst = source.summary().format == kelsdk::KelCache::eAlembicFormat;
  const MomentRange inside = moments.In(range);
  const MomentRange part = WithHeld(moments, inside, range, showsFirst);
  if (part.Count() > kMostMoments) throw TooMany(source);
  Clock clock;
  clock.showsFirst = showsFirst;
  clock.held = part.Count() - inside.Count();
  for (std::uint64_t i = 0; i < part.Count(); ++i) {
    watch.ThrowIfInterrupted();
    const std::uint64_t sample = moments.Descends() ? part.end - 1 - i : part.first + i;
    const Moment moment = moments.At(sample);
    clock.points.push_back({moment.frame, moment.seconds, moment.ticks});
    clock.sample.push_back(sample);
  }
  return clock;
}

Timeline::Timeline(Source& source, const std::vector<const ChannelSummary*>& channels,
                   const FrameRange& range, Watch& watch) {
  std::map<std::vector<double>, std::size_t> keys;
  for (const ChannelSummary* channel : channels) {
    Clock clock = ClockFor(source, *channel, range, watch);
    const auto [known, isNew] = keys.emplace(KeyOf(clock.points, clock.sample), clocks_.size());
    clockOf_.push_back(known->second);
    if (isNew) clocks_.push_back(std::move(clock));
  }
  Merge();
  if (points_.size() > kMostMoments || points_.size() > kMostPlaces / clocks_.size()) {
    throw TooMany(source);
  }
  for (Clock& clock : clocks_) FindCurrent(&clock);
}

void Timeline::Merge() {
  struct Entry {
    Point point;
    std::uint32_t turn = 0;
  };
  std::vector<Entry> entries;
  for (const Clock& clock : clocks_) {
    const std::vector<std::uint32_t> turns = TurnsOf(clock.points);
    for (std::size_t i = clock.held; i < clock.points.size(); ++i) {
      entries.push_back({clock.points[i], turns[i]});
    }
  }
  std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    return std::pair(a.point.ticks, a.turn) < std::pair(b.point.ticks, b.turn);
  });
  for (const Entry& entry : entries) {
    const bool isKnown = !points_.empty() &&
                         entry.point.ticks - points_.back().ticks <= kSameTicks &&
                         entry.turn <= turns_.back();
    if (isKnown) continue;
    points_.push_back(entry.point);
    turns_.push_back(entry.turn);
  }
}

void Timeline::FindCurrent(Clock* clock) const {
  const std::vector<std::uint32_t> turns = TurnsOf(clock->points);
  clock->current.reserve(points_.size());
  std::int32_t current = -1;
  for (std::size_t m = 0; m < points_.size(); ++m) {
    for (std::size_t next = current < 0 ? 0 : std::size_t(current) + 1; next < clock->points.size();
         ++next) {
      const double later = clock->points[next].ticks - points_[m].ticks;
      if (later > kSameTicks || (later >= -kSameTicks && turns[next] > turns_[m])) break;
      current = static_cast<std::int32_t>(next);
    }
    const bool holds = current < 0 && clock->showsFirst && !clock->points.empty();
    clock->current.push_back(holds ? 0 : current);
  }
}

std::optional<std::uint64_t> Timeline::SampleAt(std::size_t clock, std::size_t moment) const {
  const std::int32_t place = clocks_[clock].current[moment];
  if (place < 0) return {};
  return clocks_[clock].sample[static_cast<std::size_t>(place)];
}

std::size_t Timeline::Nearest(double ticks) const {
  const auto after = std::lower_bound(points_.begin(), points_.end(), ticks,
                                      [](const Point& point, double t) { return point.ticks < t; });
  if (after == points_.begin()) return 0;
  const auto place = static_cast<std::size_t>(after - points_.begin());
  if (after == points_.end()) return place - 1;
  return ticks - points_[place - 1].ticks < after->ticks - ticks ? place - 1 : place;
}

}  // namespace kelcache
