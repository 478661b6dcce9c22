#include "tools/recover.h"

#include "tools/formats.h"
#include "tools/tool_error.h"

namespace kelcache {

Recovered Recover(const std::string& file, bool force) {
  const FormatRow& row = RowOf(FormatOf(file, ""));
  ExpectWritten(row.format, file);
  Recovered recovered;
  recovered.done =
      row.recover(file, force, [&](const std::string& line) { recovered.lines.push_back(line); });
  if (recovered.done) return recovered;
  // Of a failure the last line tells why.
  recovered.why = "nothing could be recovered";
  if (!recovered.lines.empty()) {
    recovered.why = recovered.lines.back();
    recovered.lines.pop_back();
  }
  return recovered;
}

}  // namespace kelcache
