#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/tool_error.h"

namespace kelcache {

/// What one input came to. `lines` go to standard output.
struct JobResult {
  EExit status = eDone;
  std::vector<std::string> lines;
};

/// Runs `work` on every input, `jobs` at a time on threads of their own, and prints each result in
/// the order of the inputs. What a job throws becomes its error line and status. After a signal was
/// caught no further input is begun. With several inputs a summary follows on standard error.
/// @param done  what the summary says of a success, such as "sound"
/// @return the worst status of all inputs
EExit RunJobs(const std::vector<std::string>& inputs, unsigned int jobs,
              const std::function<JobResult(const std::string& input)>& work, const char* done);

}  // namespace kelcache
