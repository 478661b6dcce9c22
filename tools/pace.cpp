#include "tools/pace.h"

#include <algorithm>

namespace kelcache {

void Pace::Note(std::uint64_t count, double now) {
  constexpr std::size_t kKept = 32;  // enough to even out, few enough to follow what slows down
  if (!seen_.empty() && seen_.back().count == count) return;
  seen_.push_back({count, now});
  if (seen_.size() > kKept) seen_.pop_front();
}

void Pace::SetEarlier(std::uint64_t count, double seconds) {
  constexpr double kSettled = 2;  // seconds: such times are whole ones
  if (count != 0 && seconds >= kSettled) earlier_ = double(count) / seconds;
}

std::optional<double> Pace::PerSecond() const {
  if (seen_.size() < 2 || seen_.back().count <= seen_.front().count) return earlier_;
  const double seconds = seen_.back().at - seen_.front().at;
  if (seconds <= 0) return earlier_;
  return double(seen_.back().count - seen_.front().count) / seconds;
}

std::optional<double> Pace::SecondsFor(double more, double now) const {
  const auto perSecond = PerSecond();
  if (!perSecond) return {};
  return std::max(0.0, more / *perSecond - SecondsStill(now).value_or(0));
}

std::optional<double> Pace::SecondsStill(double now) const {
  if (seen_.empty()) return {};
  return now - seen_.back().at;
}

}  // namespace kelcache
