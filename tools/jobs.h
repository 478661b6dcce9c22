#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/inputs.h"
#include "tools/json.h"
#include "tools/tool_error.h"

namespace kelcache {

/// What one input came to.
struct JobResult {
  EExit status = eDone;
  std::vector<std::string> lines = {};  ///< for standard output, unless a report is wanted
  std::vector<std::string> cells = {};  ///< of its row, without the name and the result
  std::string result = {};              ///< in a word or few: "sound"
  std::string tally = {};               ///< what the summary counts a success as; "": as done
  std::vector<std::string> notes = {};  ///< that were told on the way, for the report
  Json report = Json::object();         ///< what the verb adds to the report
  std::uint64_t bytes = 0;              ///< for the total
};

struct Column {
  const char* title;
  unsigned int width;  ///< of its cells at the least, which are flush right
};

struct JobsOutput {
  const char* verb;
  const char* done;  ///< what the summary says of a success, such as "sound"
  bool json = false;
  std::vector<Column> columns = {};  ///< between the name and the result
  bool rowsAtEnd = false;            ///< below all other lines
  std::string shard = {};            ///< of which these inputs are; its end is reported, too
  bool isLastReport = false;         ///< that of one input follows others, in a line like them
};

/// Runs `work` on every input, `jobs` at a time on threads of their own, and tells what each came
/// to in the order of the inputs. One input by itself: its lines, and what it throws as an error.
/// Several: their lines, a row for each, and at the end a summary on standard error. With JSON: a
/// report for each, in a line each of several. After a signal was caught no further input is begun.
/// @return the worst status of all inputs
EExit RunJobs(const std::vector<Input>& inputs, unsigned int jobs,
              const std::function<JobResult(const Input& input)>& work, const JobsOutput& output);

/// A verb's work on one file, of which a report is wanted.
EExit Report(const char* verb, const std::string& file, const std::function<JobResult()>& work);

}  // namespace kelcache
