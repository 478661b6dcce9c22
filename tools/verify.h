#pragma once

#include <string>
#include <vector>

#include "tools/watch.h"

namespace kelcache {

struct Verified {
  std::vector<std::string> problems;  ///< none for a sound cache
  /// Whether the system failed to deliver a file, so that the cache may be sound.
  bool unreadable = false;
};

/// Reads everything of a cache: every size, index and checksum. Throws ToolError, and what the
/// watch throws.
/// @param asName  the format, whatever the file's extension; "" for that of the extension
Verified Verify(const std::string& file, const std::string& asName, Watch& watch);

}  // namespace kelcache
