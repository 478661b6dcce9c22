#pragma once

#include <cstdint>

#include "backends/io/report.h"
#include "backends/nc/names.h"

namespace kelsdk::nc {

/// Completes and publishes what a dead writer left: first what one was putting in place, else the
/// newest. It takes the name unless a whole cache, or a newer one, stands there: then it goes
/// beside it, or with `force` in the place of the whole one, which is kept under another name. May
/// throw std::bad_alloc.
bool Recover(const CacheName& name, bool force, std::uint32_t* blockCount,
             const io::Report& report);

}  // namespace kelsdk::nc
