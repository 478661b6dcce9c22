#include "tests/support/hooks.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <new>
#include <utility>

#include "host/KelMemory.h"

namespace kelsdk::test {

namespace fs = std::filesystem;
using namespace hooks;

namespace {

constexpr int kDie = -1;  // in place of an error number

void* CountedMalloc(std::size_t size) {
  void* block = allocations.Fires() ? nullptr : std::malloc(size);
  if (block != nullptr) ++outstanding;
  return block;
}

void* CountedRealloc(void* block, std::size_t size) {
  void* resized = allocations.Fires() ? nullptr : std::realloc(block, size);
  if (block == nullptr && resized != nullptr) ++outstanding;
  return resized;
}

void CountedFree(void* block) {
  --outstanding;
  std::free(block);
}

// Before any test or static object of a test makes an object.
[[maybe_unused]] const bool installed =
    KelSetMemoryHandlers(CountedMalloc, CountedRealloc, CountedFree);

void* NewBlock(std::size_t size) {
  const bool fails = failing == EAllocations::eAll && allocations.Fires();
  return fails ? nullptr : std::malloc(size != 0 ? size : 1);
}

bool SystemCallFails() {
  if (!systemCalls.Fires()) return false;
  if (systemCallError == kDie) ::_exit(kDiedStatus);
  errno = systemCallError;
  return true;
}

std::size_t Shortened(std::size_t count) {
  return std::min<std::size_t>(count, mostBytes);
}

// As many of the runs as are to be moved, the last one cut. Allocates nothing.
struct ShortenedRuns {
  ShortenedRuns(const struct iovec* first, int count) {
    std::size_t left = mostBytes;
    std::transform(first, first + count, runs, [&left](struct iovec run) {
      run.iov_len = std::min(run.iov_len, left);
      left -= run.iov_len;
      return run;
    });
  }
  struct iovec runs[IOV_MAX];
};

void Note(DiskEvent event) {
  if (events.empty() || events.back() != event) events.push_back(std::move(event));
}

// Notes what has been done to an open file, if it has.
template <typename Result>
Result Noted(DiskEvent::EKind kind, int fd, Result result) {
  if (!recording || result < 0) return result;
  const int kept = errno;
  Note({kind, fs::read_symlink("/proc/self/fd/" + std::to_string(fd))});
  errno = kept;
  return result;
}

// Of a path whose last component may be gone.
std::string RealPath(const fs::path& path) {
  return fs::canonical(fs::absolute(path).parent_path()) / path.filename();
}

int NotedRename(const char* from, const char* to, int result) {
  if (recording && result == 0) Note({DiskEvent::eRename, RealPath(from), RealPath(to)});
  return result;
}

}  // namespace

bool hooks::Trigger::Fires() {
  ++count;
  if (left == 0) return andAllLater && reached;
  if (--left != 0) return false;
  return reached = true;
}

int OpenDescriptors() {
  const fs::directory_iterator first("/proc/self/fd");
  return static_cast<int>(std::distance(begin(first), end(first)));
}

void DieAtSystemCall(unsigned long n) {
  systemCallError = kDie;
  systemCalls.Arm(n);
}

}  // namespace kelsdk::test

using namespace kelsdk::test;

// The forms for arrays come down to these, except under the address sanitizer, which has its own.
void* operator new(std::size_t size) {
  if (void* block = NewBlock(size)) return block;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return NewBlock(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

// The linker turns a call of X into one of __wrap_X, and __real_X into X itself.
#define WRAP(result, name, parameters, call)                     \
  result __real_##name parameters;                               \
  result __wrap_##name parameters {                              \
    return SystemCallFails() ? static_cast<result>(-1) : (call); \
  }

extern "C" {
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return SystemCallFails() ? -1 : __real_open(path, flags, mode);
}
int __real_posix_fadvise(int fd, off_t offset, off_t length, int advice);
int __wrap_posix_fadvise(int fd, off_t offset, off_t length, int advice) {
  return SystemCallFails() ? errno : __real_posix_fadvise(fd, offset, length, advice);
}

WRAP(ssize_t, pread, (int fd, void* buffer, size_t count, off_t offset),
     __real_pread(fd, buffer, Shortened(count), offset))
WRAP(ssize_t, pwrite, (int fd, const void* buffer, size_t count, off_t offset),
     Noted(DiskEvent::eWrite, fd, __real_pwrite(fd, buffer, Shortened(count), offset)))
WRAP(ssize_t, preadv, (int fd, const struct iovec* runs, int count, off_t offset),
     __real_preadv(fd, ShortenedRuns(runs, count).runs, count, offset))
WRAP(ssize_t, preadv2, (int fd, const struct iovec* runs, int count, off_t offset, int flags),
     __real_preadv2(fd, ShortenedRuns(runs, count).runs, count, offset, flags))
WRAP(ssize_t, pwritev, (int fd, const struct iovec* runs, int count, off_t offset),
     Noted(DiskEvent::eWrite, fd,
           __real_pwritev(fd, ShortenedRuns(runs, count).runs, count, offset)))
WRAP(int, ftruncate, (int fd, off_t size), Noted(DiskEvent::eWrite, fd, __real_ftruncate(fd, size)))
WRAP(int, fsync, (int fd), Noted(DiskEvent::eSync, fd, __real_fsync(fd)))
WRAP(int, syncfs, (int fd), Noted(DiskEvent::eSyncAll, fd, __real_syncfs(fd)))
WRAP(int, sync_file_range, (int fd, off_t offset, off_t count, unsigned int flags),
     __real_sync_file_range(fd, offset, count, flags))
WRAP(int, rename, (const char* from, const char* to),
     NotedRename(from, to, __real_rename(from, to)))
WRAP(int, fstat, (int fd, struct stat* entry), __real_fstat(fd, entry))
WRAP(int, link, (const char* from, const char* to), __real_link(from, to))
WRAP(int, unlink, (const char* path), __real_unlink(path))
WRAP(int, flock, (int fd, int operation), __real_flock(fd, operation))
WRAP(int, fchmod, (int fd, mode_t mode), __real_fchmod(fd, mode))
}
