#include "tools/nc_form.h"

namespace kelcache {

void NCForm::KeepThatOf(Source& source) {
  if (!RowOf(source.summary().format).hasLayouts) return;
  kelsdk::zuCacheFileInterface& cache = source.cache().NC();
  const unsigned int encoding = cache.compactEncoding();
  if (!compact && !raw && encoding != 0) {
    compact = true;
    compactEncoding = encoding;
  }
  const bool isPerFrame = cache.format() == kelsdk::zuCacheFileInterface::eFilePerFrame;
  if (!singleFile && isPerFrame) perFrame = true;
}

}  // namespace kelcache
