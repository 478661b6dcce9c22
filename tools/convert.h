#pragma once

#include <map>
#include <optional>
#include <string>

#include "tools/copy.h"

namespace kelcache {

/// What the words of --resample and --pad stand for.
extern const std::map<std::string, EResample> kResample;
extern const std::map<std::string, EPad> kPad;

struct ConvertOptions {
  std::string channel;  ///< number or name; "": all for NC, the first for PC2
  FrameRange range;
  kelsdk::KelFrameRate rate = {0, 0};
  EResample resample = EResample::eNone;
  EPad pad = EPad::eNone;
  bool snapFrames = false;
  bool perFrame = false;
  bool compact = false;
  unsigned int compactEncoding = kelsdk::zuCacheFileInterface::kCompactEncoding;
  std::optional<MaxError> maxError;
  bool force = false;
};

/// Converts one cache into another. The target appears whole or not at all. Throws ToolError, and
/// what the watch throws.
Copied Convert(const std::string& in, const std::string& out, const ConvertOptions& options,
               Watch& watch);

}  // namespace kelcache
