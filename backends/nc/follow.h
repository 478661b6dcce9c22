#pragma once

#include "backends/CacheProgress.h"
#include "backends/io/error.h"
#include "backends/io/report.h"
#include "backends/nc/names.h"

namespace kelsdk::nc {

/// Follows a writer of a cache. False when none is at work, with `error` clear, and when the folder
/// cannot be read. May throw std::bad_alloc.
bool Follow(const CacheName& name, CacheProgressFunction told, const io::Report& report,
            io::Error& error);

}  // namespace kelsdk::nc
