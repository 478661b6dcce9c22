#pragma once

#include "backends/nc/names.h"
#include "backends/nc/report.h"

namespace kelsdk::nc {

/// Reads every byte of a cache and holds every part against every other. May throw std::bad_alloc.
bool Verify(const CacheName& name, const Report& report);

}  // namespace kelsdk::nc
