#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "tools/numbers.h"

namespace kelcache {

/// A progress bar on standard error, when that is a terminal and `wanted`; otherwise nothing. It
/// shows the file's name, the share done, samples per second and the time left, as many of them as
/// the terminal has room for, and is drawn at most 20 times a second.
class Progress {
 public:
  /// @param total  samples
  Progress(std::uint64_t total, bool wanted, const std::string& file = "");
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  /// @param done  samples so far
  void Show(std::uint64_t done);
  /// Takes the bar off the terminal, before other output.
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;

  std::string Line(std::uint64_t done, double seconds, unsigned int columns) const;

  std::uint64_t total_;
  std::string name_;
  bool drawn_ = false;
  bool active_;
  Clock::time_point begun_ = Clock::now();
  Clock::time_point lastDrawn_;
};

}  // namespace kelcache
