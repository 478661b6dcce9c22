#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/view_measure.h"
#include "tools/view_pack.h"

namespace kelcache {

/// Something found at some moments of the timeline, with a line that leads there.
struct PageFlag {
  std::size_t first = 0;
  std::size_t last = 0;
  std::string text;
};

/// What is taken of a scene.
struct PagePlan {
  std::size_t frameStride = 1;   ///< every so many'th moment of the timeline, and the last
  unsigned int pointStride = 1;  ///< every so many'th point, without faces

  std::vector<std::size_t> MomentsOf(std::size_t count) const;
};

/// The page before its data, the head of the data included: all but what is packed.
std::string PageBegin(const CacheSummary& summary, Scene& scene, const SceneFigures& figures,
                      const Grid& grid, double error, const PagePlan& plan,
                      const std::vector<PageFlag>& flags, const std::vector<std::string>& notes);

/// One pack of moments, from `first` on as the plan numbers them.
std::string PageChunk(std::size_t first, std::size_t moments, std::uint64_t values,
                      const std::vector<std::uint8_t>& bytes);

std::string_view PageEnd();

}  // namespace kelcache
