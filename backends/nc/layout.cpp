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
  return a.encoding == b.encoding && a.isPerFrame == b.isPerFrame &&
         a.ticksPerFrame == b.ticksPerFrame && a.exactRate.numerator == b.exactRate.numerator &&
         a.exactRate.denominator == b.exactRate.denominator;
}

bool MakeLayout(bool isPerFrame, const char* tag, int ticksPerFrame, const KelFrameRate& exactRate,
                unsigned int compactEncoding, FileLayout* layout, Error& error) {
  const bool isCompact = tag != nullptr && std::strcmp(tag, "ncc") == 0;
  if (!isCompact && (tag == nullptr || std::strcmp(tag, "ncx") != 0)) {
    return error.Set(Error::eRefused, "the data-file tag is neither \"ncx\" nor \"ncc\"");
  }
  if (compactEncoding != eBytePlanes && compactEncoding != ePredicted) {
    return error.Set(Error::eRefused, "compact encoding %u is none that is served",
                     compactEncoding);
  }
  if (ticksPerFrame < 0) return error.Set(Error::eRefused, "%d ticks per frame", ticksPerFrame);
  const auto encoding = isCompact ? static_cast<EEncoding>(compactEncoding) : eRaw;
  *layout = {encoding, isPerFrame, ticksPerFrame, exactRate};
  return CheckExactRate(exactRate, ticksPerFrame, error);
}

}  // namespace kelsdk::nc
