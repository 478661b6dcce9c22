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

  /// Reads up to `count` bytes with one system call, as many as it delivers; 0 at the end of the
  /// file and when it fails. For what nobody has asked for yet.
  std::size_t ReadSome(std::uint64_t offset, void* buffer, std::size_t count) const;

  /// Reads what the system holds in memory of the bytes at `offset`, from the first one on, and
  /// gives how many they are. `*tells` becomes false where the system does not tell.
  std::size_t ReadFromMemory(std::uint64_t offset, const struct iovec* runs, int runCount,
                             bool* tells) const;

  /// Tells the system that these bytes will be read soon, without waiting for them.
  void WillNeed(std::uint64_t offset, std::uint64_t count) const;

 private:
  std::uint64_t size_ = 0;
};

}  // namespace kelsdk::io
