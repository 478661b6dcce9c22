#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

#include "backends/io/error.h"

namespace kelsdk::io {

/// A regular file open for positioned writes, and reads of what was written. It is locked
/// (advisory, exclusive) from creation until it is closed, so that others can tell a file under
/// way from one that a dead writer left. Move-only; the destructor closes without a word, so a
/// caller who cares calls Close.
class OutputFile {
 public:
  OutputFile() = default;
  OutputFile(OutputFile&& other) noexcept;
  OutputFile& operator=(OutputFile&& other) noexcept;
  ~OutputFile();

  /// Makes a new file; fails when the name is taken. `mode` is the file's permissions before the
  /// process's mask.
  bool Create(const char* path, unsigned int mode, Error& error);

  /// Opens an existing file; eRefused when a living writer holds it.
  bool OpenExisting(const char* path, Error& error);

  /// True when a living writer holds the file, or when that cannot be told. Takes no lock that a
  /// writer could meet but on a file that none holds, and for a moment only.
  static bool IsHeld(const char* path);

  bool IsOpen() const { return descriptor_ >= 0; }
  int Descriptor() const { return descriptor_; }

  bool Size(std::uint64_t* size, Error& error) const;
  bool WriteAt(std::uint64_t offset, const void* bytes, std::size_t count, Error& error);
  /// The same from several runs of memory; see WriteGatherFully.
  bool WriteGather(std::uint64_t offset, struct iovec* runs, int runCount, Error& error);
  bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, Error& error) const;
  bool Truncate(std::uint64_t size, Error& error);
  bool SetMode(unsigned int mode, Error& error);
  /// Makes content and size durable.
  bool Sync(Error& error);
  bool Close(Error& error);

 private:
  bool Lock(Error& error);

  int descriptor_ = -1;
};

}  // namespace kelsdk::io
