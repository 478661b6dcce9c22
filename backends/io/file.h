#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

#include "backends/io/error.h"

namespace kelsdk::io {

/// What files open for reading and for writing share: the descriptor and positioned reads of all
/// bytes or failure. Interrupted calls are repeated, partial ones go on. Move-only; the destructor
/// closes without a word.
class File {
 public:
  bool IsOpen() const { return descriptor_ >= 0; }
  int Descriptor() const { return descriptor_; }

  /// Reads all `count` bytes at `offset` or fails. One system call unless it is interrupted or the
  /// system delivers in parts.
  bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, Error& error) const;

  /// The same into up to 1024 runs of memory. The array is used up: it holds nothing of use
  /// afterwards.
  bool ReadScatter(std::uint64_t offset, struct iovec* runs, int runCount, Error& error) const;

 protected:
  File() = default;
  File(File&& other) noexcept;
  File& operator=(File&& other) noexcept;
  ~File();

  int descriptor_ = -1;
};

}  // namespace kelsdk::io
