#pragma once

#include <optional>
#include <string>

#include "tools/copy.h"

namespace kelcache {

struct RetimeOptions {
  kelsdk::KelFrameRate rate = {0, 0};
  double scale = 0;  ///< 0: none
  std::optional<double> offset;
  bool perFrame = false;
  bool compact = false;
  bool force = false;
};

/// Writes a cache with the same samples at other times. Throws ToolError, and what the watch
/// throws.
Copied Retime(const std::string& in, const std::string& out, const RetimeOptions& options,
              Watch& watch);

}  // namespace kelcache
