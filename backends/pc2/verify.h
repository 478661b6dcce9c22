#pragma once

#include "backends/io/report.h"

namespace kelsdk::pc2 {

/// Reads every sample of a file and holds its header against its size. May throw std::bad_alloc.
bool Verify(const char* path, const io::Report& report);

}  // namespace kelsdk::pc2
