#pragma once

#include <functional>
#include <optional>
#include <string>

#include "tools/sink.h"

namespace kelcache {

/// Frames of the source to frames of the copy: frame * scale + offset.
struct FrameMap {
  double scale = 1;
  double offset = 0;
  double At(double frame) const { return frame * scale + offset; }
};

struct CopyOptions {
  std::string target;
  Format targetFormat = kelsdk::KelCache::eUnknownFormat;
  std::string channel;    ///< number or name; "": all for NC, the first for PC2
  FrameRange range;       ///< scene frames of the source
  double targetRate = 0;  ///< frames per second of the copy; 0: the source's
  bool perFrame = false;
  bool compact = false;
  bool progress = true;
  FrameMap map;
};

/// Copies channels of an open cache into a new one, moment by moment, in memory that does not grow
/// with the cache. On failure or interruption nothing is left under the target's name.
/// @return samples copied
unsigned int Copy(Source& source, const CopyOptions& options);

/// What a verb says at its end of what it wrote.
void PrintCopied(const std::string& file, unsigned int samples);

/// Ticks per frame of a rate, as the NC library counts them. Throws eUsage for a rate whose ticks
/// are below 1 or do not fit.
int TicksPerFrameOf(double framesPerSecond);

}  // namespace kelcache
