#pragma once

#include <cstddef>
#include <cstdint>

#include "backends/io/error.h"
#include "backends/io/file.h"

namespace kelsdk::io {

/// A regular file open for positioned writes, and reads of what was written. It is locked
/// (advisory, exclusive) from creation until it is closed, so that others can tell a file under
/// way from one that a dead writer left. Who cares whether closing fails calls Close.
///
/// The disk gets to work while a large file is written in order, and does not wait for Sync.
class OutputFile : public File {
 public:
  /// Makes a new file; fails when the name is taken. `mode` is the file's permissions before the
  /// process's mask.
  bool Create(const char* path, unsigned int mode, Error& error);

  /// Opens an existing file; eRefused when a living writer holds it.
  bool OpenExisting(const char* path, Error& error);

  enum EHolder {
    eNobody,
    eWriter,      ///< a living one
    eNoLocks,     ///< the file system has none
    eCannotTell,  ///< the file cannot be opened
  };
  /// Who holds a file. Takes no lock that a writer could meet but on a file that none holds, and
  /// for a moment only.
  static EHolder HolderOf(const char* path);
  /// True when a living writer holds the file, and when it cannot be opened.
  static bool IsHeld(const char* path);

  /// False on a file system without locks.
  bool IsLocked() const { return isLocked_; }
  /// True as long as the path leads to this very file; symbolic links are not followed.
  bool IsAt(const char* path) const;

  bool Size(std::uint64_t* size, Error& error) const;
  /// Writes all bytes or fails, like the reads.
  bool WriteAt(std::uint64_t offset, const void* bytes, std::size_t count, Error& error);
  /// The same from up to 1024 runs of memory, which are used up.
  bool WriteGather(std::uint64_t offset, struct iovec* runs, int runCount, Error& error);
  bool Truncate(std::uint64_t size, Error& error);
  bool SetMode(unsigned int mode, Error& error);
  /// Makes content and size durable.
  bool Sync(Error& error);
  bool Close(Error& error);

 private:
  bool Lock(Error& error);
  void Written(std::uint64_t end);
  void HandOver(std::uint64_t end) const;

  bool isLocked_ = false;
  std::uint64_t handedOver_ = 0;  // bytes of the file that the disk has been given
};

}  // namespace kelsdk::io
