#pragma once

#include <cstdint>
#include <deque>
#include <optional>

namespace kelcache {

/// How fast something grows that is looked at now and then. Times are seconds of one clock.
class Pace {
 public:
  /// What was seen.
  void Note(std::uint64_t count, double now);
  /// What it took before the first look, where that is known; it counts until enough was seen.
  void SetEarlier(std::uint64_t count, double seconds);

  /// Per second, over what was seen last; empty until that can be told.
  std::optional<double> PerSecond() const;
  /// Until so much more is there, counted from now.
  std::optional<double> SecondsFor(double more, double now) const;
  /// Since it last grew; empty before it was seen to.
  std::optional<double> SecondsStill(double now) const;

 private:
  struct Seen {
    std::uint64_t count;
    double at;
  };
  std::deque<Seen> seen_;  // where it grew
  std::optional<double> earlier_;
};

}  // namespace kelcache
