#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/source.h"
#include "tools/watch.h"

namespace kelcache {

/// Channels that are shown together: every moment at which one of them has a sample, and which
/// sample of each is current there. That is the last one at or before the moment; before the first,
/// an archive shows the first and other caches nothing.
class Timeline {
 public:
  struct Point {
    std::optional<double> frame;
    double seconds = 0;
    double ticks = 0;
  };

  /// Throws eFailed for more moments than a page can hold.
  Timeline(Source& source, const std::vector<const ChannelSummary*>& channels,
           const FrameRange& range, Watch& watch);

  std::size_t Count() const { return points_.size(); }
  const Point& At(std::size_t moment) const { return points_[moment]; }
  /// The moment that lies nearest to a time in ticks; there is at least one.
  std::size_t Nearest(double ticks) const;

  /// Channels whose samples have the same times share a clock.
  std::size_t ClockOf(std::size_t channel) const { return clockOf_[channel]; }
  std::size_t ClockCount() const { return clocks_.size(); }
  /// The number, among a channel's moments, of the sample that is current.
  std::optional<std::uint64_t> SampleAt(std::size_t clock, std::size_t moment) const;

 private:
  struct Clock {
    std::vector<Point> points;          // of the samples, in order of time
    std::vector<std::uint64_t> sample;  // their numbers
    std::size_t held = 0;               // how many of them lie before the range
    bool showsFirst = false;            // before it too
    std::vector<std::int32_t> current;  // by moment: a place in `sample`, -1 for none
  };

  static Clock ClockFor(Source& source, const ChannelSummary& channel, const FrameRange& range,
                        Watch& watch);
  void Merge();
  void FindCurrent(Clock* clock) const;

  std::vector<Clock> clocks_;
  std::vector<std::size_t> clockOf_;
  std::vector<Point> points_;
  std::vector<std::uint32_t> turns_;
};

}  // namespace kelcache
