#pragma once

#include <cstdint>
#include <string>

#include "tools/view_scene.h"

namespace kelcache {

struct ViewOptions : SceneOptions {
  std::string page;  ///< "": the cache's name with ".html" in place of its extension
  std::string asName;
  kelsdk::KelFrameRate rate = {0, 0};  ///< of a cache that stores none; else not valid
  std::uint64_t maxSize = 64000000;    ///< bytes of the page
  bool force = false;                  ///< replace a page that is there
};

struct Viewed {
  std::string page;
  std::uint64_t bytes = 0;
  std::size_t moments = 0;  ///< on the page
  std::size_t objects = 0;
  std::uint64_t points = 0;  ///< of all objects at their largest, on the page
  double largestError = 0;   ///< in the cache's unit
  std::size_t findings = 0;  ///< of `check` in what is shown
  bool missing = false;      ///< the cache is cut short
};

/// Writes a page that plays a cache in a browser. It appears whole or not at all; what is left out
/// to keep its size goes to the watch and onto the page. Throws eFailed, eUsage.
Viewed View(const std::string& file, const ViewOptions& options, Watch& watch);

}  // namespace kelcache
