#include "bench/workload.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>

#include "backends/zuPointCache2IO.h"
#include "bench/measure.h"

namespace kelbench {
namespace {

// Poses of one workload together: more than the processor's caches, little beside the memory.
constexpr std::size_t kMostBytes = 120'000'000;

}  // namespace

Workload Workload::Cloth(unsigned int points, unsigned int frames) {
  Workload made;
  made.points_ = points;
  made.frames_ = frames;
  const auto fitting = static_cast<unsigned int>(kMostBytes / made.frameBytes());
  made.hold_ = (frames + fitting - 1) / fitting;
  const unsigned int poses = (frames + made.hold_ - 1) / made.hold_;
  const auto side = static_cast<unsigned int>(std::ceil(std::sqrt(points)));
  std::minstd_rand random(1);
  made.poses_.reserve(poses * made.valueCount());
  for (unsigned int pose = 0; pose < poses; ++pose) {
    const float phase = 0.1f * static_cast<float>(pose);
    for (unsigned int i = 0; i < points; ++i) {
      const float u = static_cast<float>(i % side) / static_cast<float>(side);
      const unsigned int row = i / side;
      const float v = static_cast<float>(row) / static_cast<float>(side);
      const float noise = static_cast<float>(random() % 1000) * 2e-6f;
      const float lift = std::sin(9 * u + phase) * std::cos(7 * v) + noise;
      made.poses_.insert(made.poses_.end(), {u * 2, lift * 0.2f, v * 2});
    }
  }
  return made;
}

Workload Workload::FromPC2(const std::string& path) {
  kelsdk::zuPointCache2IO file;
  Require(file.initialize(path.c_str(), kelsdk::zuPointCache2IO::readMode), path.c_str());
  Workload made;
  made.name_ = std::filesystem::path(path).filename();
  made.points_ = file.pointCount;
  made.frames_ = file.wholeSampleCount();
  made.poses_.resize(made.frames_ * made.valueCount());
  for (unsigned int i = 0; i < made.frames_; ++i) {
    unsigned int count = made.points_;
    Require(file.readSample(i, made.poses_.data() + i * made.valueCount(), count), "read a sample");
  }
  return made;
}

Scratch::Scratch()
    : folder_(std::filesystem::temp_directory_path() /
              ("kelcache-bench-" + std::to_string(::getpid())) / "") {
  std::filesystem::create_directory(folder_);
}
Scratch::~Scratch() {
  std::filesystem::remove_all(folder_);
}

}  // namespace kelbench
