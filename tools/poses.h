#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/values.h"

namespace kelcache {

/// A run of samples of a channel that hold the same values, measured. A pose's moves are those into
/// it from the pose before, where that has as many points.
struct Pose {
  std::uint64_t first = 0;  ///< number of its first sample
  std::uint64_t samples = 1;
  std::uint64_t identity = 0;  ///< hash of the values
  unsigned int elements = 0;
  bool hasMoves = false;   ///< it is not the first, and as many points are there as before
  double seconds = 0;      ///< from the last sample of the pose before to its first
  double largestMove = 0;  ///< of a point
  double boxMove = 0;      ///< the largest of the moves of the box's corners, from any pose
  bool isFinite = true;    ///< all values are
  bool hasBox = false;     ///< there are finite values in every direction
  double diagonal = 0;     ///< of the box of these

  /// The largest move of a point a second.
  double Speed() const { return largestMove / seconds; }
};

/// A move that may be found to be wrong.
struct Move {
  std::uint64_t pose = 0;
  unsigned int point = 0;
  double distance = 0;
  std::array<double, 3> from = {};
  std::array<double, 3> to = {};
};

/// Values of a pose that are no numbers, or infinite.
struct NotFinite {
  std::uint64_t pose = 0;
  std::uint64_t values = 0;  ///< how many
  unsigned int element = 0;  ///< the first that has some,
  std::string text;          ///< and its values: "(1, nan, 0)"
};

/// A channel's samples, measured.
struct Poses {
  std::vector<Pose> all;
  std::vector<NotFinite> notFinite;
  /// Of each pose that has such points the one that moves furthest: points that move kOutOfStep
  /// times as fast as they themselves do before and after,
  std::vector<Move> lone;
  /// points that move kOutOfStep times as fast as they themselves do before,
  std::vector<Move> sudden;
  /// points that move further than a limit.
  std::vector<Move> beyond;
};

inline constexpr double kOutOfStep = 8;

/// Measures the samples of a channel, one after the other in time. Keeps three arrays.
class PoseMeter {
 public:
  /// @param points  elements are the places of points: three values of floating point each
  /// @param limit   moves further than that are noted; infinite for none
  PoseMeter(bool points, double limit) : points_(points), limit_(limit) {}

  /// The room that the next array is to be in, so that the two before it stay as they are.
  Room* NextRoom() { return &kept_[2].room; }
  /// @param array    in NextRoom
  /// @param sample   its number
  void Add(const Array& array, std::uint64_t sample, double seconds);
  /// The sample added last repeats up to a later one.
  void Repeat(std::uint64_t samples, double lastSeconds);
  /// Ends the measuring.
  Poses Take();

 private:
  struct Kept {
    Room room;
    Array array;
    std::vector<double> squares;  // of the points' moves into it, empty where there are none
  };
  struct Box {
    std::array<double, 3> low;
    std::array<double, 3> high;
  };

  bool SameAsBefore(const Array& array) const;
  void CountNotFinite(const Array& array);
  template <typename Value>
  void Measure(const Value* values, const Array& array);
  void MeasureBox(const Box& box);
  template <typename Value>
  void MeasureMoves(const Value* values);
  template <typename Value>
  void FindLone(const Value* after, const std::vector<double>& squaresAfter, double secondsAfter);

  bool points_;
  double limit_;
  std::array<Kept, 3> kept_;  // the pose before the last, the last one, the one to come
  double lastSeconds_ = 0;    // of the last sample
  Box box_ = {};
  bool hasBox_ = false;
  Poses poses_;
};

}  // namespace kelcache
