#include "tests/support/hooks.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <new>
#include <utility>

#include "host/KelMemory.h"

namespace kelsdk::test {
namespace {

// A countdown to one event: 0 means disarmed.
struct Trigger {
  std::atomic<unsigned long> count{0};
  std::atomic<unsigned long> left{0};
  std::atomic<bool> reached{false};
  std::atomic<bool> sticky{false};

  void Arm(unsigned long n, bool keepFailing) {
    reached = false;
    sticky = keepFailing;
    left = n;
  }
  void Disarm() {
    left = 0;
    sticky = false;
  }
  bool Fires() {
    ++count;
    if (left == 0) return sticky && reached;
    if (--left != 0) return false;
    reached = true;
    return true;
  }
};

Trigger allocations;
Trigger systemCalls;
std::atomic<int> systemCallError{0};
std::atomic<bool> die{false};
std::atomic<bool> onlyKelMalloc{false};
std::atomic<long> outstanding{0};
std::atomic<std::size_t> mostBytes{SIZE_MAX};
std::atomic<bool> recording{false};
std::vector<DiskEvent> events;

void Note(DiskEvent event) {
  if (recording && (events.empty() || events.back() != event)) events.push_back(std::move(event));
}

void* CountedMalloc(std::size_t size) {
  if (allocations.Fires()) return nullptr;
  void* block = std::malloc(size);
  if (block != nullptr) ++outstanding;
  return block;
}

void* CountedRealloc(void* block, std::size_t size) {
  if (allocations.Fires()) return nullptr;
  void* resized = std::realloc(block, size);
  if (block == nullptr && resized != nullptr) ++outstanding;
  return resized;
}

void CountedFree(void* block) {
  --outstanding;
  std::free(block);
}

// Before any test or static object of a test makes an object.
[[maybe_unused]] const bool installed = [] {
  KelSetMemoryHandlers(CountedMalloc, CountedRealloc, CountedFree);
  return true;
}();

}  // namespace

bool SystemCallFails() {
  if (!systemCalls.Fires()) return false;
  if (die) ::_exit(kDiedStatus);
  errno = systemCallError;
  return true;
}

std::size_t Shortened(std::size_t count) {
  return std::min<std::size_t>(count, mostBytes);
}

// As many of the runs as are to be moved, the last one cut.
std::vector<struct iovec> Shortened(const struct iovec* runs, int count) {
  std::vector<struct iovec> kept(runs, runs + count);
  std::size_t left = mostBytes;
  for (struct iovec& run : kept) {
    run.iov_len = std::min(run.iov_len, left);
    left -= run.iov_len;
  }
  return kept;
}

bool ShortensTransfers() {
  return mostBytes != SIZE_MAX;
}

// Notes what has been done to an open file, if it has.
template <typename Result>
Result Noted(DiskEvent::EKind kind, int fd, Result result) {
  if (!recording || result < 0) return result;
  const int kept = errno;
  Note({kind, std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd))});
  errno = kept;
  return result;
}

// Of a path whose last component may be gone.
std::string RealPath(const std::filesystem::path& path) {
  return std::filesystem::canonical(std::filesystem::absolute(path).parent_path()) /
         path.filename();
}

int NotedRename(const char* from, const char* to, int result) {
  if (recording && result == 0) Note({DiskEvent::eRename, RealPath(from), RealPath(to)});
  return result;
}

bool NewFails() {
  return !onlyKelMalloc && allocations.Fires();
}

unsigned long AllocationCount() {
  return allocations.count;
}
long OutstandingBlocks() {
  return outstanding;
}
unsigned long SystemCallCount() {
  return systemCalls.count;
}

int OpenDescriptors() {
  const std::filesystem::directory_iterator first("/proc/self/fd");
  return static_cast<int>(std::distance(begin(first), end(first)));
}

FailAllocation::FailAllocation(unsigned long n, EAllocations which) {
  onlyKelMalloc = which == EAllocations::eKelMalloc;
  allocations.Arm(n, false);
}
FailAllocation::~FailAllocation() {
  allocations.Disarm();
  onlyKelMalloc = false;
}
bool FailAllocation::Reached() const {
  return allocations.reached;
}

FailSystemCall::FailSystemCall(unsigned long n, int errorNumber, bool andAllLater) {
  systemCallError = errorNumber;
  systemCalls.Arm(n, andAllLater);
}
FailSystemCall::~FailSystemCall() {
  systemCalls.Disarm();
}
bool FailSystemCall::Reached() const {
  return systemCalls.reached;
}

ShortenTransfers::ShortenTransfers(std::size_t most) {
  mostBytes = most;
}
ShortenTransfers::~ShortenTransfers() {
  mostBytes = SIZE_MAX;
}

RecordDisk::RecordDisk() {
  recording = true;
}
RecordDisk::~RecordDisk() {
  recording = false;
  events.clear();
}
const std::vector<DiskEvent>& RecordDisk::Events() const {
  return events;
}

void DieAtSystemCall(unsigned long n) {
  die = true;
  systemCalls.Arm(n, false);
}

}  // namespace kelsdk::test

using kelsdk::test::DiskEvent;
using kelsdk::test::NewFails;
using kelsdk::test::Noted;
using kelsdk::test::NotedRename;
using kelsdk::test::Shortened;
using kelsdk::test::ShortensTransfers;
using kelsdk::test::SystemCallFails;

// The forms for arrays come down to these, except under the address sanitizer, which has its own.
void* operator new(std::size_t size) {
  void* block = NewFails() ? nullptr : std::malloc(size != 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return NewFails() ? nullptr : std::malloc(size != 0 ? size : 1);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}

// The linker turns a call of X into one of __wrap_X, and __real_X into X itself.
#define WRAP_AS(result, name, parameters, call)                  \
  result __wrap_##name parameters {                              \
    return SystemCallFails() ? static_cast<result>(-1) : (call); \
  }
#define WRAP(result, name, parameters, arguments) \
  result __real_##name parameters;                \
  WRAP_AS(result, name, parameters, __real_##name arguments)

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

ssize_t __real_pread(int fd, void* buffer, size_t count, off_t offset);
WRAP_AS(ssize_t, pread, (int fd, void* buffer, size_t count, off_t offset),
        __real_pread(fd, buffer, Shortened(count), offset))
ssize_t __real_pwrite(int fd, const void* buffer, size_t count, off_t offset);
WRAP_AS(ssize_t, pwrite, (int fd, const void* buffer, size_t count, off_t offset),
        Noted(DiskEvent::eWrite, fd, __real_pwrite(fd, buffer, Shortened(count), offset)))
ssize_t __real_preadv(int fd, const struct iovec* runs, int count, off_t offset);
WRAP_AS(ssize_t, preadv, (int fd, const struct iovec* runs, int count, off_t offset),
        __real_preadv(fd, ShortensTransfers() ? Shortened(runs, count).data() : runs, count,
                      offset))
ssize_t __real_preadv2(int fd, const struct iovec* runs, int count, off_t offset, int flags);
WRAP_AS(ssize_t, preadv2, (int fd, const struct iovec* runs, int count, off_t offset, int flags),
        __real_preadv2(fd, ShortensTransfers() ? Shortened(runs, count).data() : runs, count,
                       offset, flags))
ssize_t __real_pwritev(int fd, const struct iovec* runs, int count, off_t offset);
WRAP_AS(ssize_t, pwritev, (int fd, const struct iovec* runs, int count, off_t offset),
        Noted(DiskEvent::eWrite, fd,
              __real_pwritev(fd, ShortensTransfers() ? Shortened(runs, count).data() : runs, count,
                             offset)))
int __real_ftruncate(int fd, off_t size);
WRAP_AS(int, ftruncate, (int fd, off_t size),
        Noted(DiskEvent::eWrite, fd, __real_ftruncate(fd, size)))
int __real_fsync(int fd);
WRAP_AS(int, fsync, (int fd), Noted(DiskEvent::eSync, fd, __real_fsync(fd)))
int __real_syncfs(int fd);
WRAP_AS(int, syncfs, (int fd), Noted(DiskEvent::eSyncAll, fd, __real_syncfs(fd)))
WRAP(int, sync_file_range, (int fd, off_t offset, off_t count, unsigned int flags),
     (fd, offset, count, flags))
int __real_rename(const char* from, const char* to);
WRAP_AS(int, rename, (const char* from, const char* to),
        NotedRename(from, to, __real_rename(from, to)))
WRAP(int, fstat, (int fd, struct stat* entry), (fd, entry))
WRAP(int, link, (const char* from, const char* to), (from, to))
WRAP(int, unlink, (const char* path), (path))
WRAP(int, flock, (int fd, int operation), (fd, operation))
WRAP(int, fchmod, (int fd, mode_t mode), (fd, mode))
}
