#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kelbench {

/// What a cache holds: `points` points (x y z) at each of `frames` frames. Long caches of large
/// frames hold each pose for many frames, so that any length fits any machine; measuring visits
/// every pose once, over the whole length of the cache.
class Workload {
 public:
  /// Points of a cloth that waves, with noise in the last digits.
  static Workload Cloth(unsigned int points, unsigned int frames);
  /// The samples of a PC2 file.
  static Workload FromPC2(const std::string& path);

  /// The file's name; empty for cloth.
  const std::string& name() const { return name_; }
  unsigned int points() const { return points_; }
  unsigned int frames() const { return frames_; }
  std::size_t valueCount() const { return std::size_t{points_} * 3; }
  std::size_t frameBytes() const { return valueCount() * sizeof(float); }

  unsigned int poses() const { return static_cast<unsigned int>(poses_.size() / valueCount()); }
  const float* Pose(unsigned int pose) const { return poses_.data() + pose * valueCount(); }
  /// The frames of a pose: the first, and how many.
  unsigned int FirstFrame(unsigned int pose) const { return pose * hold_; }
  unsigned int PoseOf(unsigned int frame) const { return frame / hold_; }
  /// Every frame is a pose of its own.
  bool IsWhole() const { return hold_ == 1; }

 private:
  std::string name_;
  unsigned int points_ = 0;
  unsigned int frames_ = 0;
  unsigned int hold_ = 1;
  std::vector<float> poses_;
};

/// A folder of this process's own in TMPDIR or /tmp, removed with all that is in it.
class Scratch {
 public:
  Scratch();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  /// Ends in "/".
  const std::string& folder() const { return folder_; }
  std::string File(const std::string& name) const { return folder_ + name; }

 private:
  std::string folder_;
};

}  // namespace kelbench
