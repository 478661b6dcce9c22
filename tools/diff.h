#pragma once

#include <string>

#include "tools/formats.h"
#include "tools/watch.h"

namespace kelcache {

struct DiffOptions {
  std::string channel;   ///< number or name; "": all, the first where one cache is PC2
  double tolerance = 0;  ///< values that differ by no more are equal
};

struct Differences {
  unsigned int count = 0;
  double largest = 0;    ///< between two values; 0 for none
  std::string where;     ///< the largest is, and what the two values are
  bool missing = false;  ///< samples that one of the caches promises
};

/// Compares two caches of any formats sample by sample: counts, times and values as stored. Throws
/// ToolError, and what the watch throws.
/// @param differs  told one line about each difference
Differences Diff(const std::string& fileA, const std::string& fileB, const DiffOptions& options,
                 const Say& differs, Watch& watch);

}  // namespace kelcache
