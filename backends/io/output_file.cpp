#include "backends/io/output_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "backends/io/runs.h"

namespace kelsdk::io {
namespace {

// Smaller files are as fast without; of larger ones this much is still waiting at the end.
constexpr std::uint64_t kHandedOverAtOnce = std::uint64_t{16} << 20;

}  // namespace

bool OutputFile::Create(const char* path, unsigned int mode, Error& error) {
  handedOver_ = 0;
  descriptor_ = ::open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (descriptor_ < 0) return error.SetSystem(errno, "cannot create");
  if (Lock(error)) return true;
  ::unlink(path);
  Error ignored;
  Close(ignored);
  return false;
}

bool OutputFile::OpenExisting(const char* path, Error& error) {
  handedOver_ = 0;
  descriptor_ = ::open(path, O_RDWR | O_CLOEXEC | O_NONBLOCK);
  if (descriptor_ < 0) return error.SetSystem(errno, "cannot open for writing");
  if (Lock(error)) return true;
  Error ignored;
  Close(ignored);
  return false;
}

OutputFile::EHolder OutputFile::HolderOf(const char* path) {
  const int descriptor = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return eCannotTell;
  const bool isFree = ::flock(descriptor, LOCK_SH | LOCK_NB) == 0;
  const EHolder holder = isFree ? eNobody : errno == EWOULDBLOCK ? eWriter : eNoLocks;
  ::close(descriptor);
  return holder;
}

bool OutputFile::IsHeld(const char* path) {
  const EHolder holder = HolderOf(path);
  return holder == eWriter || holder == eCannotTell;
}

bool OutputFile::IsAt(const char* path) const {
  struct stat own = {};
  struct stat there = {};
  return ::fstat(descriptor_, &own) == 0 && ::lstat(path, &there) == 0 &&
         own.st_dev == there.st_dev && own.st_ino == there.st_ino;
}

// A file system without locks answers with another error than EWOULDBLOCK: no reason to fail.
bool OutputFile::Lock(Error& error) {
  isLocked_ = ::flock(descriptor_, LOCK_EX | LOCK_NB) == 0;
  if (isLocked_ || errno != EWOULDBLOCK) return true;
  return error.Set(Error::eRefused, "a living writer holds the file");
}

bool OutputFile::Size(std::uint64_t* size, Error& error) const {
  struct stat entry = {};
  if (::fstat(descriptor_, &entry) != 0)
    return error.SetSystem(errno, "cannot ask the file's size");
  *size = static_cast<std::uint64_t>(entry.st_size);
  return true;
}

bool OutputFile::WriteAt(std::uint64_t offset, const void* bytes, std::size_t count, Error& error) {
  const auto* source = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t put = ::pwrite(descriptor_, source, count, static_cast<off_t>(offset));
    if (put < 0) {
      if (errno == EINTR) continue;
      return error.SetSystem(errno, "writing %zu bytes at %llu", count,
                             static_cast<unsigned long long>(offset));
    }
    const auto done = static_cast<std::size_t>(put);
    source += done;
    offset += done;
    count -= done;
  }
  Written(offset);
  return true;
}

bool OutputFile::WriteGather(std::uint64_t offset, struct iovec* runs, int runCount, Error& error) {
  for (Runs left(runs, runCount); !left.Done();) {
    const ssize_t put =
        ::pwritev(descriptor_, left.Next(), left.Count(), static_cast<off_t>(offset));
    if (put < 0) {
      if (errno == EINTR) continue;
      return error.SetSystem(errno, "writing %zu bytes at %llu", left.Left(),
                             static_cast<unsigned long long>(offset));
    }
    offset += static_cast<std::size_t>(put);
    left.Advance(static_cast<std::size_t>(put));
  }
  Written(offset);
  return true;
}

void OutputFile::Written(std::uint64_t end) {
  if (end <= handedOver_ || end - handedOver_ < kHandedOverAtOnce) return;
  HandOver(end);
  handedOver_ = end;
}

void OutputFile::HandOver(std::uint64_t end) const {
  // Not waited for, and no promise: what goes wrong is told by Sync.
  static_cast<void>(::sync_file_range(descriptor_, static_cast<off_t>(handedOver_),
                                      static_cast<off_t>(end - handedOver_),
                                      SYNC_FILE_RANGE_WRITE));
}

bool OutputFile::Truncate(std::uint64_t size, Error& error) {
  if (::ftruncate(descriptor_, static_cast<off_t>(size)) == 0) return true;
  return error.SetSystem(errno, "setting the size to %llu", static_cast<unsigned long long>(size));
}

bool OutputFile::SetMode(unsigned int mode, Error& error) {
  if (::fchmod(descriptor_, mode) == 0) return true;
  return error.SetSystem(errno, "setting permissions");
}

bool OutputFile::Sync(Error& error) {
  if (::fsync(descriptor_) == 0) return true;
  return error.SetSystem(errno, "making the file durable");
}

bool OutputFile::Close(Error& error) {
  const int descriptor = std::exchange(descriptor_, -1);
  if (descriptor < 0 || ::close(descriptor) == 0) return true;
  return error.SetSystem(errno, "closing");
}

}  // namespace kelsdk::io
