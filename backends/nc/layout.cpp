#include "backends/nc/layout.h"

#include <cstring>

namespace kelsdk::nc {

using io::Error;

bool CheckExactRate(const KelFrameRate& exactRate, std::int32_t ticksPerFrame, Error& error) {
  if (!exactRate.IsValid() || IsRateOfTicks(exactRate, ticksPerFrame)) return true;
  return error.Set(Error::eRefused, "%u/%u frames per second are not %d ticks per frame",
                   exactRate.numerator, exactRate.denominator, ticksPerFrame);
}

bool AreSame(const FileLayout& a, const FileLayout& b) {
  return a.isCompact == b.isCompact && a.isPerFrame == b.isPerFrame &&
         a.ticksPerFrame == b.ticksPerFrame && a.exactRate.numerator == b.exactRate.numerator &&
         a.exactRate.denominator == b.exactRate.denominator;
}

bool MakeLayout(bool isPerFrame, const char* tag, int ticksPerFrame, const KelFrameRate& exactRate,
                FileLayout* layout, Error& error) {
  const bool isCompact = tag != nullptr && std::strcmp(tag, "ncc") == 0;
  if (!isCompact && (tag == nullptr || std::strcmp(tag, "ncx") != 0)) {
    return error.Set(Error::eRefused, "the data-file tag is neither \"ncx\" nor \"ncc\"");
  }
  if (ticksPerFrame < 0) return error.Set(Error::eRefused, "%d ticks per frame", ticksPerFrame);
  *layout = {isCompact, isPerFrame, ticksPerFrame, exactRate};
  return CheckExactRate(exactRate, ticksPerFrame, error);
}

}  // namespace kelsdk::nc
