#pragma once

#include <map>
#include <optional>
#include <string>

#include "tools/copy.h"

namespace kelcache {

/// What the words of --resample and --pad stand for.
extern const std::map<std::string, EResample> kResample;
extern const std::map<std::string, EPad> kPad;

struct ConvertOptions : NCForm {
  ChannelChoice channels;  ///< none chosen: all for NC, the first for PC2
  FrameRange range;
  unsigned int every = 1;              ///< of how many samples one is taken
  kelsdk::KelFrameRate rate = {0, 0};  ///< that frames of the source are counted at
  EResample resample = EResample::eNone;
  kelsdk::KelFrameRate resampleRate = {0, 0};  ///< of the copy, with `resample`; else the source's
  TransformOptions transform;
  EPad pad = EPad::eNone;
  bool snapFrames = false;
  bool edits = false;  ///< an NC cache keeps its form; no channel is left out unasked
  std::optional<MaxError> maxError;
  bool force = false;
};

/// Converts one cache into another. The target appears whole or not at all. Throws ToolError, and
/// what the watch throws.
Copied Convert(const std::string& in, const std::string& out, const ConvertOptions& options,
               Watch& watch);

}  // namespace kelcache
