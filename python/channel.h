#pragma once

#include "python/open_cache.h"

namespace kelpython {

/// The name by which a PC2 cache's only channel, which has none in the file, is found.
inline constexpr char kNameOfUnnamed[] = "points";

py::object MakeChannel(const std::shared_ptr<OpenCache>& cache,
                       const kelcache::ChannelSummary& summary);

void BindChannel(py::module_& module);

}  // namespace kelpython
