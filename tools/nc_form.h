#pragma once

#include "tools/source.h"

namespace kelcache {

/// How an NC cache is to be stored.
struct NCForm {
  bool perFrame = false;
  bool compact = false;
  unsigned int compactEncoding = kelsdk::zuCacheFileInterface::kCompactEncoding;
  bool singleFile = false;  ///< whatever the source's layout
  bool raw = false;         ///< whatever the source's form

  /// Takes over how a source stores what these options leave open; of other formats nothing.
  void KeepThatOf(Source& source);
};

}  // namespace kelcache
