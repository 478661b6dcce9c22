#pragma once

#include <string>
#include <vector>

#include "tools/copy.h"
#include "tools/jobs.h"

namespace kelcache {

/// The report of a verb that wrote a copy.
inline JobResult CopiedResult(const std::string& out, const Copied& copied,
                              const std::vector<std::string>& notes) {
  JobResult result;
  result.status = copied.missing ? eFound : eDone;
  result.notes = notes;
  result.report = {{"target", out}, {"counts", {{"samples", copied.samples}}}};
  return result;
}

}  // namespace kelcache
