#include "tools/copy.h"

#include <cstdio>

#include "tools/interrupt.h"
#include "tools/output.h"
#include "tools/terminal.h"
#include "tools/tool_error.h"

namespace kelcache {

void PrintCopied(const std::string& file, std::uint64_t samples) {
  PrintLine(stdout, file + ": " + std::to_string(samples) + " samples written");
}

void SayWhatPC2Rounds(const ChannelSummary& channel, const std::string& target) {
  if (channel.value != ValueType::eFloat64) return;
  PrintError(target + ": doubles were rounded to 32-bit floats, which PC2 stores");
}

std::uint64_t Copy(Source& source, const CopyOptions& options) {
  CatchInterrupts();
  return RowOf(options.targetFormat).hasLayouts ? CopyToNC(source, options)
                                                : CopyToPC2(source, options);
}

}  // namespace kelcache
