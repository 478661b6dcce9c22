#pragma once

#include <string>
#include <vector>

#include "bench/measure.h"
#include "bench/workload.h"

namespace kelbench {

/// The one table of results, in Markdown, a line as soon as it is measured.
class Table {
 public:
  /// Only rows whose path has one of these words; all without words.
  explicit Table(std::vector<std::string> words) : words_(std::move(words)) {}

  bool Wants(const std::string& path) const;

  /// Measures and prints a row. The first contender is ours, the second the baseline; the others go
  /// to the columns of their names.
  /// @param units       what a pass does so many times: frames or openings
  /// @param unitBytes   raw bytes of one, 0 when a pass moves none
  /// @param storedShare bytes on disk / raw bytes of what ours writes, 0 when that says nothing
  void Row(const std::string& path, const Workload& workload, unsigned int units,
           std::size_t unitBytes, double storedShare, const std::vector<Contender>& contenders);

 private:
  std::vector<std::string> words_;
  bool begun_ = false;
};

}  // namespace kelbench
