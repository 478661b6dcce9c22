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
  row.verify(file, [&](const std::string& line) { verified.problems.push_back(line); });
  // Data files that are missing are damage.
  verified.unreadable = !verified.problems.empty() && row.anyFile(file, SystemFails);
  return verified;
}

}  // namespace kelcache
