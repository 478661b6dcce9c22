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
  unsigned int interval = 0;  ///< declared, in ticks; 0: none
  double maximumError = 0;    ///< that its values may move by
};

/// A cache being written. Ended without Finish, it leaves nothing behind.
class Sink {
 public:
  virtual ~Sink() = default;
  /// Times must not go back. Throws eFailed.
  virtual void Write(unsigned int channel, int ticks, const Array& array) = 0;
  /// Writes what a channel was given at an earlier time, without its values. False, with nothing
  /// written, where the cache can not hold it so.
  virtual bool Repeat(unsigned int channel, int ticks, unsigned int ofChannel, int ofTicks) = 0;
  /// Completes the cache and puts it in its place. Throws eFailed.
  virtual void Finish() = 0;
};

/// One sample after the other, whatever their times; arrays are floats or doubles, 3 an element.
std::unique_ptr<Sink> MakePC2Sink(const std::string& file, unsigned int points,
                                  unsigned int samples, float startFrame, float sampleRate);

struct NCLayout {
  bool perFrame = false;
  bool compact = false;
  int ticksPerFrame = 250;
  kelsdk::KelFrameRate exactRate = {0, 0};  ///< where the ticks per frame are cut; else not valid
  unsigned int compactEncoding = kelsdk::zuCacheFileInterface::kCompactEncoding;
};

std::unique_ptr<Sink> MakeNCSink(const std::string& file, const NCLayout& layout,
                                 const std::vector<SinkChannel>& channels);

}  // namespace kelcache
