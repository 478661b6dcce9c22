#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/source.h"

namespace kelcache {

struct SinkChannel {
  std::string name;
  std::string interpretation;
  ElementType type = kelsdk::zuCacheData::eNCFloatVectorArray;
};

/// A cache being written. Ended without Finish, it leaves nothing behind.
class Sink {
 public:
  virtual ~Sink() = default;
  /// Times must not go back. Throws eFailed.
  virtual void Write(unsigned int channel, int ticks, const FetchedArray& array) = 0;
  /// Completes the cache and puts it in its place. Throws eFailed.
  virtual void Finish() = 0;
};

/// One sample after the other, whatever their times; `array` holds 3 floats a point.
std::unique_ptr<Sink> MakePC2Sink(const std::string& file, unsigned int points,
                                  unsigned int samples, float startFrame, float sampleRate);

struct NCLayout {
  bool perFrame = false;
  bool compact = false;
  int ticksPerFrame = 250;
};

std::unique_ptr<Sink> MakeNCSink(const std::string& file, const NCLayout& layout,
                                 const std::vector<SinkChannel>& channels);

}  // namespace kelcache
