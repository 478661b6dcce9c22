#include "tools/poses.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace kelcache {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
constexpr double kOutOfStepSquared = kOutOfStep * kOutOfStep;

// Of a distance between points that are not finite: no number. Of one whose square is none: the
// largest.
template <typename Value>
double OddSquare(const Value* a, const Value* b) {
  for (int k = 0; k < 3; ++k) {
    if (!std::isfinite(a[k]) || !std::isfinite(b[k])) return kNoNumber;
  }
  return std::numeric_limits<double>::max();
}

template <typename Value>
double Square(const Value* a, const Value* b) {
  const double x = double(a[0]) - double(b[0]);
  const double y = double(a[1]) - double(b[1]);
  const double z = double(a[2]) - double(b[2]);
  const double square = x * x + y * y + z * z;
  return square < kInfinity ? square : OddSquare(a, b);
}

template <typename Value>
std::uint64_t CountNotFiniteIn(const Value* values, std::size_t count) {
  std::uint64_t found = 0;
  if constexpr (std::is_floating_point_v<Value>) {
    // An exponent of ones: nothing that is finite less itself is not 0.
    for (std::size_t i = 0; i < count; ++i) found += values[i] - values[i] == Value(0) ? 0U : 1U;
  }
  return found;
}

template <typename Value>
Move MoveOf(std::uint64_t pose, unsigned int point, const Value* before, const Value* after) {
  Move move{pose, point, 0, {}, {}};
  for (std::size_t k = 0; k < 3; ++k) {
    move.from[k] = double(before[std::size_t{point} * 3 + k]);
    move.to[k] = double(after[std::size_t{point} * 3 + k]);
  }
  move.distance =
      std::hypot(move.to[0] - move.from[0], move.to[1] - move.from[1], move.to[2] - move.from[2]);
  return move;
}

std::string ElementText(const Array& array, std::size_t element) {
  std::string text = "(";
  constexpr unsigned int kShown = 6;
  for (unsigned int k = 0; k < std::min(array.components, kShown); ++k) {
    if (k != 0) text += ", ";
    text += ValueText(array, element * array.components + k);
  }
  return text + (array.components > kShown ? ", ...)" : ")");
}

}  // namespace

bool PoseMeter::SameAsBefore(const Array& array) const {
  const Array& before = kept_[1].array;
  const std::size_t bytes = array.Count() * SizeOf(array.type);
  return !poses_.all.empty() && before.elements == array.elements &&
         (bytes == 0 || std::memcmp(before.values, array.values, bytes) == 0);
}

void PoseMeter::CountNotFinite(const Array& array) {
  const std::uint64_t count =
      array.Visited([&](const auto* values) { return CountNotFiniteIn(values, array.Count()); });
  if (count == 0) return;
  poses_.all.back().isFinite = false;
  std::size_t first = 0;
  array.Visited([&](const auto* values) {
    while (CountNotFiniteIn(values + first, 1) == 0) ++first;
  });
  const std::size_t element = first / array.components;
  poses_.notFinite.push_back({poses_.all.size() - 1, count, static_cast<unsigned int>(element),
                              ElementText(array, element)});
}

void PoseMeter::Add(const Array& array, std::uint64_t sample, double seconds) {
  if (SameAsBefore(array)) return Repeat(1, seconds);
  Pose pose;
  pose.first = sample;
  pose.elements = array.elements;
  pose.identity = XXH3_64bits(array.values, array.Count() * SizeOf(array.type));
  const double step = std::fabs(seconds - lastSeconds_);
  pose.seconds = step > 0 ? step : 1;  // a PC2 file may put all samples on one frame
  pose.hasMoves = points_ && !poses_.all.empty() && poses_.all.back().elements == array.elements;
  poses_.all.push_back(pose);
  CountNotFinite(array);
  kept_[2].array = array;
  kept_[2].squares.clear();
  if (points_) {
    array.Visited([&](const auto* values) { Measure(values, array); });
  }
  std::swap(kept_[0], kept_[1]);
  std::swap(kept_[1], kept_[2]);
  lastSeconds_ = seconds;
}

void PoseMeter::Repeat(std::uint64_t samples, double lastSeconds) {
  poses_.all.back().samples += samples;
  lastSeconds_ = lastSeconds;
}

template <typename Value>
void PoseMeter::Measure(const Value* values, const Array& array) {
  Box box = {{kInfinity, kInfinity, kInfinity}, {-kInfinity, -kInfinity, -kInfinity}};
  const Value* at = values;
  for (unsigned int i = 0; i < array.elements; ++i, at += 3) {
    for (unsigned int k = 0; k < 3; ++k) {
      const double value = double(at[k]);
      const bool finite = value - value == 0;
      box.low[k] = finite && value < box.low[k] ? value : box.low[k];
      box.high[k] = finite && value > box.high[k] ? value : box.high[k];
    }
  }
  MeasureBox(box);
  if (poses_.all.back().hasMoves) MeasureMoves(values);
}

void PoseMeter::MeasureBox(const Box& box) {
  if (!(box.low[0] <= box.high[0] && box.low[1] <= box.high[1] && box.low[2] <= box.high[2])) {
    return;  // no point is finite
  }
  Pose& pose = poses_.all.back();
  pose.hasBox = true;
  pose.diagonal = std::sqrt(Square(box.low.data(), box.high.data()));
  if (hasBox_) {
    pose.boxMove = std::sqrt(std::max(Square(box.low.data(), box_.low.data()),
                                      Square(box.high.data(), box_.high.data())));
  }
  box_ = box;
  hasBox_ = true;
}

// No comparison with a square that is no number holds: such moves are none.
template <typename Value>
void PoseMeter::MeasureMoves(const Value* values) {
  Pose& pose = poses_.all.back();
  const std::uint64_t number = poses_.all.size() - 1;
  const auto* const before = static_cast<const Value*>(kept_[1].array.values);
  const std::vector<double>& squaresBefore = kept_[1].squares;
  std::vector<double>& squares = kept_[2].squares;
  squares.resize(pose.elements);
  double largest = 0;
  unsigned int largestPoint = 0;
  for (unsigned int i = 0; i < pose.elements; ++i) {
    const double square = Square(values + std::size_t{i} * 3, before + std::size_t{i} * 3);
    squares[i] = square;
    if (square > largest) {
      largest = square;
      largestPoint = i;
    }
  }
  pose.largestMove = std::sqrt(largest);
  if (pose.largestMove > limit_) {
    poses_.beyond.push_back(MoveOf(number, largestPoint, before, values));
  }
  const bool isKnownBefore = !squaresBefore.empty();
  if (isKnownBefore) {
    const double scale = pose.seconds / poses_.all[number - 1].seconds;
    const double factor = kOutOfStepSquared * scale * scale;
    largest = 0;
    for (unsigned int i = 0; i < pose.elements; ++i) {
      if (squares[i] > largest && squares[i] > factor * squaresBefore[i]) {
        largest = squares[i];
        largestPoint = i;
      }
    }
  }
  if (largest > 0) poses_.sudden.push_back(MoveOf(number, largestPoint, before, values));
  if (isKnownBefore) FindLone(values, squares, pose.seconds);
}

// Looks at the moves into the pose before the one that is being added. A point that comes back at
// once moves as far afterwards, but then it is where it was. Where nothing is known of it before,
// that may be its way, or the point turn, and it is held against the largest move afterwards.
template <typename Value>
void PoseMeter::FindLone(const Value* after, const std::vector<double>& squaresAfter,
                         double secondsAfter) {
  const std::uint64_t number = poses_.all.size() - 2;
  const Pose& pose = poses_.all[number];
  const std::vector<double>& squares = kept_[1].squares;
  const std::vector<double>& squaresBefore = kept_[0].squares;
  const auto* const at = static_cast<const Value*>(kept_[1].array.values);
  const auto* const before = static_cast<const Value*>(kept_[0].array.values);
  const double ofAfter = pose.seconds / secondsAfter;
  const double ofBefore =
      !squaresBefore.empty() ? pose.seconds / poses_.all[number - 1].seconds : 0;
  double largest = 0;
  unsigned int largestPoint = 0;
  for (unsigned int i = 0; i < pose.elements; ++i) {
    if (!(squares[i] > largest)) continue;
    const std::size_t place = std::size_t{i} * 3;
    double later = poses_.all.back().largestMove * poses_.all.back().largestMove;
    double earlier = 0;
    if (!squaresBefore.empty()) {
      later = std::min(squaresAfter[i], Square(after + place, before + place));
      earlier = squaresBefore[i] * ofBefore * ofBefore;
    }
    later *= ofAfter * ofAfter;
    if (squares[i] > kOutOfStepSquared * std::max(later, earlier)) {
      largest = squares[i];
      largestPoint = i;
    }
  }
  if (largest > 0) poses_.lone.push_back(MoveOf(number, largestPoint, before, at));
}

Poses PoseMeter::Take() {
  return std::move(poses_);
}

}  // namespace kelcache
