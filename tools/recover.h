#pragma once

#include <string>
#include <vector>

namespace kelcache {

struct Recovered {
  bool done = false;
  std::vector<std::string> lines;  ///< what was found, saved and kept, and under which names
  std::string why;                 ///< it was not done
};

/// Completes what a dead writer of a cache left behind. Throws ToolError for what is no cache that
/// could have been written.
Recovered Recover(const std::string& file, bool force);

}  // namespace kelcache
