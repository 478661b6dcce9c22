#pragma once

#include "backends/io/report.h"
#include "backends/nc/names.h"

namespace kelsdk::nc {

/// Reads every byte of a cache and holds every part against every other. May throw std::bad_alloc.
bool Verify(const CacheName& name, const io::Report& report);

}  // namespace kelsdk::nc
