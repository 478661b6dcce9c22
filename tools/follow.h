#pragma once

#include <optional>
#include <string>

#include "tools/formats.h"

namespace kelcache {

struct FollowOptions {
  double interval = 1;              ///< seconds from look to look
  std::optional<double> lastFrame;  ///< that the writer means to write; empty: what its file tells
  bool json = false;
};

/// Shows what a writer of the cache has written so far until that ends: in a line that is drawn
/// anew on a terminal, else in a line for each change.
/// @return what was seen last; nothing where no writer is at work
std::optional<kelsdk::CacheProgress> FollowWriter(const std::string& file, const FormatRow& row,
                                                  const FollowOptions& options);

/// "at work", "published" ...
const char* StateText(kelsdk::CacheProgress::EState state);

}  // namespace kelcache
