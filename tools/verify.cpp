#include "tools/verify.h"

#include "tools/formats.h"
#include "tools/leftovers.h"
#include "tools/readable.h"

namespace kelcache {

Verified Verify(const std::string& file, const std::string& asName, Watch& watch) {
  const Format format = FormatOf(file, asName);
  NoteLeftovers(file, format, watch);
  ExpectReadable(file);
  const FormatRow& row = RowOf(format);
  Verified verified;
  const Say note = [&](const std::string& line) { verified.problems.push_back(line); };
  VerifyReport report(file, note, watch);
  row.verify(file, &report);
  report.Finish();
  watch.End();
  // Data files that are missing are damage.
  verified.unreadable = !verified.problems.empty() && row.anyFile(file, SystemFails);
  return verified;
}

}  // namespace kelcache
