#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/inputs.h"

namespace kelcache {

/// Where the copies of many caches go, and which of them are made.
struct BatchOptions {
  std::string extension;  ///< of the copies
  std::string folder;     ///< that they go to, under the names of the inputs; "": beside these
  bool skipExisting =
      false;  ///< what is newer than its source and whole stays; else it is replaced
  bool force = false;
};

/// One copy to be made, or the reason why it is not.
struct PlannedCopy {
  Input input;
  std::string target;
};

/// Of all inputs before any shard is chosen, so that all shards plan alike. Inputs of one target
/// get that as their problem.
std::vector<PlannedCopy> PlanCopies(const std::vector<Input>& inputs, const BatchOptions& options);

enum class ETargetState {
  eFree,      ///< nothing stands there
  eInTheWay,  ///< something does, and nothing was said that lets it be replaced
  eReplaced,  ///< what stands there is to be replaced
  eUpToDate,  ///< it is newer than its source, and whole
  eIsSource,  ///< the source is in the format already
};

/// Looks at what stands at the target. Throws eFailed when that cannot be told.
ETargetState LookAtTarget(const PlannedCopy& copy, const BatchOptions& options);

/// Makes the target's folder and runs `convert`. Throws eFailed, and lets the copy count as older
/// than its source, when the source changed meanwhile.
void MakeCopy(const PlannedCopy& copy, const std::function<void()>& convert);

}  // namespace kelcache
