#pragma once

#include <cstdint>

#include "backends/io/error.h"
#include "backends/io/report.h"

namespace kelsdk::pc2 {

/// Completes the newest partial file of `path` that no living writer holds and that has a whole
/// sample. It takes the name unless a whole file, or a newer one, stands there: then it goes beside
/// it, or with `force` in the place of the whole one, which is kept under another name. May throw
/// std::bad_alloc.
bool Recover(const char* path, bool force, std::uint32_t* sampleCount, const io::Report& report,
             io::Error& error);

/// The partial files that Recover could save something of. May throw std::bad_alloc.
std::uint32_t CountLeftovers(const char* path, const io::Report& report);

}  // namespace kelsdk::pc2
