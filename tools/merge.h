#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/copy.h"
#include "tools/sequence_track.h"

namespace kelcache {

/// What the words of --prefer stand for.
extern const std::map<std::string, EPrefer> kPrefer;

struct MergeOptions : NCForm {
  bool sequence = false;  ///< one after the other in time; else side by side
  EPrefer prefer = EPrefer::eNone;
  bool allowDifferentRanges = false;
  kelsdk::KelFrameRate rate = {0, 0};  ///< of the caches that store none
  bool force = false;
};

/// Writes the channels of several caches into one NC cache. Throws ToolError, and what the watch
/// throws.
Copied Merge(const std::vector<std::string>& inputs, const std::string& out,
             const MergeOptions& options, Watch& watch);

}  // namespace kelcache
