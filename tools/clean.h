#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kelcache {

struct CleanOptions {
  bool recursive = false;
  std::optional<std::uint64_t> olderThan;  ///< seconds
  bool dryRun = false;
  bool force = false;  ///< also what recover could save, and older caches that may be the only copy
};

/// What was left, and what became of it.
struct Remnant {
  enum EOutcome { eRemoved, eWouldBeRemoved, eKept, eFailedToGo };
  std::string path;
  std::string kind;  ///< in words
  std::uint64_t bytes = 0;
  std::uint64_t age = 0;  ///< seconds
  EOutcome outcome = eKept;
  std::string why;
};

/// Removes what dead writers and recoveries left in a folder. `told` hears of each, and of a folder
/// that could not be read, as it is done; what it throws ends the work. Throws ToolError for what
/// is no folder.
void Clean(const std::string& folder, const CleanOptions& options,
           const std::function<void(const Remnant&)>& told);

}  // namespace kelcache
