#include "tools/copy.h"

#include <climits>
#include <cstdio>

#include "tools/interrupt.h"
#include "tools/output.h"
#include "tools/terminal.h"
#include "tools/tool_error.h"

namespace kelcache {

using kelsdk::KelCache;

void PrintCopied(const std::string& file, std::uint64_t samples) {
  PrintLine(stdout, file + ": " + std::to_string(samples) + " samples written");
}

void SayWhatPC2Rounds(const ChannelSummary& channel, const std::string& target) {
  if (channel.value != ValueType::eFloat64) return;
  PrintError(target + ": doubles were rounded to 32-bit floats, which PC2 stores");
}

TickRate::TickRate(const kelsdk::KelFrameRate& rate) {
  const std::uint64_t ticks = std::uint64_t{kTicksPerSecond} * rate.denominator;
  if (!rate.IsValid() || ticks / rate.numerator < 1 || ticks / rate.numerator > INT_MAX) {
    throw ToolError(eUsage, "Invalid sampling rate: " + RoundedText(rate.PerSecond()) +
                                " frames per second are not 1 to 2147483647 ticks a frame");
  }
  ticksPerFrame = static_cast<int>(ticks / rate.numerator);
  exactTicks = double(ticks) / rate.numerator;
  if (ticks % rate.numerator != 0) exactRate = rate;
}

std::uint64_t Copy(Source& source, const CopyOptions& options) {
  CatchInterrupts();
  if (options.targetFormat == KelCache::ePC2Format) return CopyToPC2(source, options);
  return CopyToNC(source, options);
}

}  // namespace kelcache
