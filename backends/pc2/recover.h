#pragma once

#include <cstdint>
#include <functional>

#include "backends/io/error.h"

namespace kelsdk::pc2 {

using Report = std::function<void(const char* line)>;

/// Completes the newest partial file of `path` that no living writer holds and that has a whole
/// sample. An older file of that name is kept beside it. May throw std::bad_alloc.
bool Recover(const char* path, std::uint32_t* sampleCount, const Report& report, io::Error& error);

}  // namespace kelsdk::pc2
