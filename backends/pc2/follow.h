#pragma once

#include <string>

#include "backends/CacheProgress.h"
#include "backends/io/report.h"

namespace kelsdk::pc2 {

/// Follows a writer of `path`. False when none is at work. May throw std::bad_alloc.
bool Follow(const std::string& path, CacheProgressFunction told, const io::Report& report);

}  // namespace kelsdk::pc2
