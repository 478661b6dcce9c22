#include "tools/check_rules.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <utility>

#include "tools/numbers.h"

namespace kelcache {
namespace {

// Fewer moves do not tell what is typical.
constexpr std::size_t kLeastMoves = 3;
// What happens at more than this share of the places where it could is a habit of the cache.
constexpr double kHabit = 0.25;
// A stretch is frozen beside habitual ones when it is so many times as long.
constexpr double kLonger = 4;
// A step of at least this share of the typical one is in the midst of motion.
constexpr double kInMotion = 0.25;
// An earlier pose comes back in a step that is so many times those before and after.
constexpr double kBackInAStep = 3;
// A box of this share of the typical one is one place.
constexpr double kOnePlace = 1e-6;
// An interval of so many typical ones lacks a sample. An interval is typical when so many of all
// are as long, within this share.
constexpr double kGap = 1.5;
constexpr double kMost = 0.75;
constexpr double kSameInterval = 0.02;

double LowerMedian(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + std::ptrdiff_t((values.size() - 1) / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

bool IsHabit(std::size_t times, std::size_t places) {
  return double(times) > kHabit * double(places);
}

std::string PlaceText(const std::array<double, 3>& place) {
  return '(' + RoundedText(place[0]) + ", " + RoundedText(place[1]) + ", " + RoundedText(place[2]) +
         ')';
}

Finding Make(EFinding kind, std::uint64_t first, std::uint64_t last, std::string text) {
  Finding finding;
  finding.kind = kind;
  finding.firstSample = first;
  finding.lastSample = last;
  finding.text = std::move(text);
  return finding;
}

/// One rule a function, in an order in which what explains a jump comes before the jumps.
class Rules {
 public:
  Rules(const Poses& poses, double maxMove)
      : poses_(poses), all_(poses.all), maxMove_(maxMove), explained_(all_.size() + 1) {
    std::vector<double> speeds;
    std::vector<double> moves;
    std::vector<double> diagonals;
    for (const Pose& pose : all_) {
      if (pose.hasMoves && pose.largestMove > 0) {
        speeds.push_back(pose.Speed());
        moves.push_back(pose.largestMove);
      }
      if (pose.elements > 1 && pose.hasBox) diagonals.push_back(pose.diagonal);
    }
    std::size_t countChanges = 0;
    for (std::size_t i = 1; i < all_.size(); ++i) countChanges += HasOtherCount(i) ? 1U : 0U;
    pointsComeAndGo_ = IsHabit(countChanges, all_.size());
    knowsSpeed_ = speeds.size() >= kLeastMoves && !pointsComeAndGo_;
    typicalSpeed_ = LowerMedian(std::move(speeds));
    typicalMove_ = LowerMedian(std::move(moves));
    typicalDiagonal_ = LowerMedian(std::move(diagonals));
  }

  void FindNotFinite() {
    const std::vector<NotFinite>& found = poses_.notFinite;
    for (std::size_t i = 0; i < found.size();) {
      const NotFinite& first = found[i];
      std::uint64_t values = 0;
      std::uint64_t pose = first.pose;
      for (; i < found.size() && found[i].pose == pose; ++i, ++pose) values += found[i].values;
      Finding finding = Make(EFinding::eNotFinite, all_[first.pose].first, LastOf(pose - 1),
                             std::to_string(values) + (values == 1 ? " value is" : " values are") +
                                 " not finite, first in " + first.text);
      finding.point = first.element;
      findings_.push_back(std::move(finding));
    }
  }

  void FindCollapsed() {
    for (std::size_t i = 0; i < all_.size(); ++i) {
      if (!IsCollapsed(i)) continue;
      const std::size_t first = i;
      while (i + 1 < all_.size() && IsCollapsed(i + 1)) ++i;
      for (std::size_t k = first; k <= i + 1; ++k) explained_[k] = true;
      std::string text = "all " + std::to_string(all_[first].elements) + " points are in one place";
      if (typicalDiagonal_ > 0) {
        text += "; their box is typically " + RoundedText(typicalDiagonal_) + " across";
      }
      findings_.push_back(Make(EFinding::eCollapsed, all_[first].first, LastOf(i), text));
    }
  }

  void FindCountChanges() {
    if (pointsComeAndGo_) return;
    for (std::size_t i = 1; i < all_.size(); ++i) {
      if (!HasOtherCount(i)) continue;
      findings_.push_back(Make(EFinding::eCountChange, all_[i].first, all_[i].first,
                               std::to_string(all_[i].elements) + " points after " +
                                   std::to_string(all_[i - 1].elements)));
    }
  }

  void FindFrozen() {
    const double usual = UsualRepeats();
    for (std::size_t i = 1; i < all_.size(); ++i) {
      const std::uint64_t repeats = all_[i].samples - 1;
      const bool isLast = i + 1 == all_.size();
      const std::uint64_t least = isLast ? 2 : 1;  // many programs write the last pose twice
      if (repeats < least || double(repeats) <= kLonger * usual || IsCollapsed(i)) continue;
      if (!IsInMotion(i) || (!isLast && !IsInMotion(i + 1))) continue;
      explained_[i + 1] = true;
      findings_.push_back(Make(EFinding::eFrozen, all_[i].first + 1, LastOf(i),
                               repeats == 1
                                   ? "repeats the sample before, in the midst of motion"
                                   : std::to_string(repeats) +
                                         " samples repeat the one before, in the midst of motion"));
    }
  }

  void FindJumpsBack() {
    std::unordered_map<std::uint64_t, std::size_t> known;
    for (std::size_t i = 0; knowsSpeed_ && i < all_.size(); ++i) {
      const auto [earlier, isNew] = known.try_emplace(all_[i].identity, i);
      const std::size_t like = std::exchange(earlier->second, i);
      if (isNew || explained_[i]) continue;
      const double around =
          std::max(SpeedInto(i - 1), std::min(SpeedInto(i + 1), SpeedInto(i + 2)));
      if (SpeedInto(i) == 0 || SpeedInto(i) < kBackInAStep * around) continue;
      explained_[i] = explained_[i + 1] = true;
      Finding finding =
          Make(EFinding::eJumpBack, all_[i].first, all_[i].first,
               "the points jump back, up to " + RoundedText(all_[i].largestMove) + ", to those of");
      finding.like = all_[like].first;
      findings_.push_back(std::move(finding));
    }
  }

  void FindJumps() {
    if (std::isfinite(maxMove_) && !pointsComeAndGo_) {
      const std::string limit = ", more than " + RoundedText(maxMove_);
      for (const Move& move : poses_.beyond) AddJump(move, limit);
    } else if (knowsSpeed_) {
      for (const Move& move : poses_.lone) {
        if (IsFast(move)) AddJump(move, OutOfStep(move));
      }
      for (const Move& move : poses_.sudden) {
        const bool staysUnknown = move.pose + 1 == all_.size() || !all_[move.pose + 1].hasMoves;
        const bool leaves = move.distance > typicalDiagonal_;
        if (IsFast(move) && (staysUnknown || leaves)) AddJump(move, OutOfStep(move));
      }
    }
  }

  // Where the number of points changes, only their box tells of a move: a point is not the one that
  // had its number before.
  void FindBoxJumps() {
    std::vector<double> moves;
    for (std::size_t i = 1; i < all_.size(); ++i) {
      if (IsJudgedByBox(i) && all_[i].boxMove > 0) moves.push_back(all_[i].boxMove);
    }
    const bool knows = moves.size() >= kLeastMoves;
    const double typical = LowerMedian(std::move(moves));
    for (std::size_t i = 1; i < all_.size(); ++i) {
      if (!IsJudgedByBox(i) || explained_[i]) continue;
      const double around =
          std::max({typical, all_[i - 1].boxMove, i + 1 < all_.size() ? all_[i + 1].boxMove : 0});
      const double limit = std::isfinite(maxMove_) ? maxMove_ : kOutOfStep * around;
      if (!(all_[i].boxMove > limit) || !(knows || std::isfinite(maxMove_))) continue;
      findings_.push_back(Make(
          EFinding::eJump, all_[i].first, all_[i].first,
          "the box moves " + RoundedText(all_[i].boxMove) + ", more than " + RoundedText(limit)));
    }
  }

  std::vector<Finding> Take() { return std::move(findings_); }

 private:
  std::uint64_t LastOf(std::size_t i) const { return all_[i].first + all_[i].samples - 1; }
  bool HasOtherCount(std::size_t i) const { return all_[i].elements != all_[i - 1].elements; }
  bool IsJudgedByBox(std::size_t i) const { return pointsComeAndGo_ || HasOtherCount(i); }
  double SpeedInto(std::size_t i) const {
    return i < all_.size() && all_[i].hasMoves ? all_[i].Speed() : 0;
  }
  bool IsInMotion(std::size_t i) const {
    return knowsSpeed_ && SpeedInto(i) >= kInMotion * typicalSpeed_;
  }
  bool IsCollapsed(std::size_t i) const {
    const Pose& pose = all_[i];
    return pose.elements > 1 && pose.isFinite && pose.diagonal <= kOnePlace * typicalDiagonal_;
  }
  // Where samples are no even steps apart, neither the distance nor the speed alone tells.
  double FarthestTypical(std::size_t pose) const {
    return std::max(typicalMove_, typicalSpeed_ * all_[pose].seconds);
  }
  bool IsFast(const Move& move) const {
    return move.distance > kOutOfStep * FarthestTypical(move.pose);
  }

  // How often a pose is repeated where that is the cache's habit, as with animation on twos.
  double UsualRepeats() const {
    std::vector<double> repeats;
    for (std::size_t i = 1; i + 1 < all_.size(); ++i) {
      if (all_[i].samples > 1) repeats.push_back(double(all_[i].samples - 1));
    }
    return IsHabit(repeats.size(), all_.size()) ? LowerMedian(std::move(repeats)) : 0;
  }

  std::string OutOfStep(const Move& move) const {
    return ", out of step with its own moves, where typically none is above " +
           RoundedText(FarthestTypical(move.pose));
  }

  void AddJump(const Move& move, const std::string& why) {
    if (explained_[move.pose]) return;
    explained_[move.pose] = true;
    Finding finding = Make(EFinding::eJump, all_[move.pose].first, all_[move.pose].first,
                           "moves " + RoundedText(move.distance) + ", from " +
                               PlaceText(move.from) + " to " + PlaceText(move.to) + why);
    finding.point = move.point;
    findings_.push_back(std::move(finding));
  }

  const Poses& poses_;
  const std::vector<Pose>& all_;
  double maxMove_;
  bool pointsComeAndGo_ = false;  // they are born and die: their number changes all the time
  bool knowsSpeed_ = false;
  double typicalMove_ = 0;   // of the fastest point in a step,
  double typicalSpeed_ = 0;  // and a second
  double typicalDiagonal_ = 0;
  std::vector<bool> explained_;  // the step into a pose is the work of what has been found
  std::vector<Finding> findings_;
};

void FindGaps(const std::vector<double>& times, std::uint64_t first,
              std::vector<Finding>* findings) {
  std::vector<double> intervals;
  for (std::size_t i = 1; i < times.size(); ++i) intervals.push_back(times[i] - times[i - 1]);
  const double typical = LowerMedian(intervals);
  const auto alike = std::count_if(intervals.begin(), intervals.end(), [&](double interval) {
    return std::fabs(interval - typical) <= kSameInterval * typical;
  });
  if (double(alike) < kMost * double(intervals.size())) return;
  for (std::size_t i = 0; i < intervals.size(); ++i) {
    if (intervals[i] <= kGap * typical) continue;
    findings->push_back(Make(EFinding::eGap, first + i, first + i + 1,
                             "no sample for " + RoundedText(intervals[i]) +
                                 " s, where one comes every " + RoundedText(typical) + " s"));
  }
}

}  // namespace

std::vector<Finding> ApplyRules(const Poses& poses, const std::vector<double>& times, bool points,
                                double maxMove, std::uint64_t first) {
  Rules rules(poses, maxMove);
  rules.FindNotFinite();
  if (points) {
    rules.FindCollapsed();
    rules.FindCountChanges();
    rules.FindFrozen();
    rules.FindJumpsBack();
    rules.FindJumps();
    rules.FindBoxJumps();
  }
  std::vector<Finding> findings = rules.Take();
  FindGaps(times, first, &findings);
  std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
    return a.firstSample < b.firstSample;
  });
  return findings;
}

}  // namespace kelcache
