#pragma once

#include <cstddef>
#include <cstdint>

#include "backends/io/error.h"

namespace kelsdk::io {

/// Positioned transfers of all bytes or failure, on a descriptor that the caller keeps: interrupted
/// calls are repeated, partial ones go on.
bool ReadFully(int descriptor, std::uint64_t offset, void* buffer, std::size_t count, Error& error);
bool WriteFully(int descriptor, std::uint64_t offset, const void* bytes, std::size_t count,
                Error& error);

}  // namespace kelsdk::io
