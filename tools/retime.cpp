#include "tools/retime.h"

#include "tools/target.h"
#include "tools/tool_error.h"

namespace kelcache {

Copied Retime(const std::string& in, const std::string& out, const RetimeOptions& options,
              Watch& watch) {
  const Format from = FormatOf(in, "");
  CopyOptions copy;
  copy.target = out;
  copy.targetFormat = FormatOf(out, "");
  ExpectWritten(copy.targetFormat, out);
  const FormatRow& row = RowOf(copy.targetFormat);
  if (options.rate.IsValid() && !row.storesRate) {
    throw ToolError(eUsage, out + ": a PC2 cache stores no frame rate");
  }
  if ((options.perFrame || options.compact) && !row.hasLayouts) {
    throw ToolError(eUsage, out + ": --per-frame and --compact are for NC caches (.xml)");
  }
  copy.targetRate = options.rate;
  if (options.scale > 0) copy.map.scale = options.scale;
  if (options.offset) copy.map.offset = *options.offset;
  copy.perFrame = options.perFrame;
  copy.compact = options.compact;
  const Target target(out, options.force);
  Source source(in, from);
  Copied copied;
  copied.missing = NoteWhatIsMissing(source, {}, watch);
  target.ExpectOtherThan(in);
  copied.samples = Copy(source, copy, watch);
  return copied;
}

}  // namespace kelcache
