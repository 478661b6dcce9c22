#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

#include "backends/io/error.h"

namespace kelsdk::io {

/// Positioned transfers of all bytes or failure, on a descriptor that the caller keeps: interrupted
/// calls are repeated, partial ones go on.
bool ReadFully(int descriptor, std::uint64_t offset, void* buffer, std::size_t count, Error& error);
bool WriteFully(int descriptor, std::uint64_t offset, const void* bytes, std::size_t count,
                Error& error);

/// The same from or into up to 1024 runs of memory with one system call. The array is used up: it
/// holds nothing of use afterwards.
bool ReadScatterFully(int descriptor, std::uint64_t offset, struct iovec* runs, int runCount,
                      Error& error);
bool WriteGatherFully(int descriptor, std::uint64_t offset, struct iovec* runs, int runCount,
                      Error& error);

}  // namespace kelsdk::io
