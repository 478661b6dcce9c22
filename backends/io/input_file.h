#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

#include "backends/io/error.h"

namespace kelsdk::io {

/// A regular file open for positioned reads. Move-only; the destructor closes.
class InputFile {
 public:
  InputFile() = default;
  InputFile(InputFile&& other) noexcept;
  InputFile& operator=(InputFile&& other) noexcept;
  ~InputFile();

  /// Opens the file and asks its size. Directories, devices and pipes are refused.
  bool Open(const char* path, Error& error);
  void Close();
  bool IsOpen() const { return descriptor_ >= 0; }

  /// Bytes, as of Open or the last Refresh.
  std::uint64_t Size() const { return size_; }
  /// Asks the size again: the file may have grown or been cut since.
  bool Refresh(Error& error);

  /// Reads all `count` bytes at `offset` or fails. One system call unless it is interrupted or the
  /// system delivers in parts.
  bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, Error& error) const;

  /// The same into several runs of memory; see ReadScatterFully.
  bool ReadScatter(std::uint64_t offset, struct iovec* runs, int runCount, Error& error) const;

  /// The same, the first `headCount` bytes into `head` and the rest into `body`.
  bool ReadSplitAt(std::uint64_t offset, void* head, std::size_t headCount, void* body,
                   std::size_t bodyCount, Error& error) const;

  /// Tells the system that these bytes will be read soon, without waiting for them.
  void WillNeed(std::uint64_t offset, std::uint64_t count) const;

 private:
  int descriptor_ = -1;
  std::uint64_t size_ = 0;
};

}  // namespace kelsdk::io
