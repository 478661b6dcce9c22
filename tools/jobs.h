#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/json.h"
#include "tools/tool_error.h"

namespace kelcache {

/// What one input came to. `lines` go to standard output, or the report where JSON is wanted.
struct JobResult {
  EExit status = eDone;
  std::vector<std::string> lines;
  std::vector<std::string> notes;  ///< that were told on the way, for the report
  std::vector<std::string> row;    ///< of the table
  Json report = Json::object();    ///< what the verb adds to the report
};

struct JobsOutput {
  const char* done;  ///< what the summary says of a success, such as "sound"
  const char* verb;
  bool json = false;  ///< an object for each input, in a line each of several
  std::vector<std::string> columns =
      {};  ///< of a table of several inputs at the end; none: no table
};

/// Runs `work` on every input, `jobs` at a time on threads of their own, and prints each result in
/// the order of the inputs. What a job throws becomes its error line and status. After a signal was
/// caught no further input is begun. With several inputs a summary follows on standard error.
/// @return the worst status of all inputs
EExit RunJobs(const std::vector<std::string>& inputs, unsigned int jobs,
              const std::function<JobResult(const std::string& input)>& work,
              const JobsOutput& output);

}  // namespace kelcache
