#pragma once

#include <cstdint>

#include "backends/io/error.h"
#include "backends/io/file.h"

namespace kelsdk::io {

/// A regular file open for positioned reads.
class InputFile : public File {
 public:
  /// Opens the file and asks its size. Directories, devices and pipes are refused.
  bool Open(const char* path, Error& error);
  void Close();

  /// Bytes, as of Open or the last Refresh.
  std::uint64_t Size() const { return size_; }
  /// Asks the size again: the file may have grown or been cut since.
  bool Refresh(Error& error);

  /// Whether the system holds the byte at `offset` in memory. False too where it does not tell.
  bool IsInMemory(std::uint64_t offset) const;

  /// Tells the system that these bytes will be read soon, without waiting for them.
  void WillNeed(std::uint64_t offset, std::uint64_t count) const;

 private:
  std::uint64_t size_ = 0;
};

}  // namespace kelsdk::io
