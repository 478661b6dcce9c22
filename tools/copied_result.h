#pragma once

#include <string>
#include <vector>

#include "tools/copy.h"
#include "tools/jobs.h"
#include "tools/terminal_watch.h"

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

/// Runs a verb that writes one cache, with a bar and a line at its end, or for a report.
/// @param copy  makes the copy and is told by a watch
template <typename Copy>
EExit TellCopy(const char* verb, const std::string& in, const std::string& out, bool json,
               Copy&& copy) {
  CatchInterrupts();
  if (json) {
    return Report(verb, in, [&] {
      TerminalWatch watch(false);
      const Copied copied = copy(watch);
      return CopiedResult(out, copied, watch.notes());
    });
  }
  TerminalWatch watch(true);
  const Copied copied = copy(watch);
  PrintLine(stdout, CopiedText(out, copied.samples));
  return copied.missing ? eFound : eDone;
}

}  // namespace kelcache
