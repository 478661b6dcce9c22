#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/sink.h"

namespace kelpython {

/// What is to be written.
struct Plan {
  std::string file;
  kelsdk::KelFrameRate rate;
  bool compact = false;
  bool perFrame = false;
  std::vector<kelcache::SinkChannel> channels;
  unsigned int points = 0;   ///< PC2: of each sample
  unsigned int samples = 0;  ///< PC2
  double start = 0;          ///< PC2: frame of the first sample
};

/// A cache being written, frame by frame in any order. Ended without Finish, it leaves nothing
/// behind. Throws ToolError: eUsage for what the caller asks wrongly, eFailed for the disk.
class Output {
 public:
  virtual ~Output() = default;
  /// Where a frame goes: a tick or a sample number.
  virtual std::int64_t PlaceOf(double frame) const = 0;
  /// Throws for an array that can not be written.
  virtual void Expect(const kelcache::Array& array) const = 0;
  virtual void Write(std::int64_t place, unsigned int channel, const kelcache::Array& array) = 0;
  virtual void Finish() = 0;
};

std::unique_ptr<Output> MakeNCOutput(const Plan& plan);
std::unique_ptr<Output> MakePC2Output(const Plan& plan);

}  // namespace kelpython
