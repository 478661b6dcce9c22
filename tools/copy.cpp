#include "tools/copy.h"

namespace kelcache {

void NoteWhatPC2Rounds(const ChannelSummary& channel, const std::string& target, Watch& watch) {
  if (channel.value != ValueType::eFloat64) return;
  watch.Note(target + ": doubles were rounded to 32-bit floats, which PC2 stores");
}

std::uint64_t Copy(Source& source, const CopyOptions& options, Watch& watch) {
  return RowOf(options.targetFormat).hasLayouts ? CopyToNC(source, options, watch)
                                                : CopyToPC2(source, options, watch);
}

}  // namespace kelcache
