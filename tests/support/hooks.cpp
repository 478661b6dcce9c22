#include "tests/support/hooks.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <new>

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

void DieAtSystemCall(unsigned long n) {
  die = true;
  systemCalls.Arm(n, false);
}

}  // namespace kelsdk::test

using kelsdk::test::NewFails;
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
#define WRAP(result, name, parameters, arguments)                                 \
  result __real_##name parameters;                                                \
  result __wrap_##name parameters {                                               \
    return SystemCallFails() ? static_cast<result>(-1) : __real_##name arguments; \
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
     (fd, buffer, count, offset))
WRAP(ssize_t, preadv, (int fd, const struct iovec* parts, int count, off_t offset),
     (fd, parts, count, offset))
WRAP(ssize_t, pwrite, (int fd, const void* buffer, size_t count, off_t offset),
     (fd, buffer, count, offset))
WRAP(ssize_t, pwritev, (int fd, const struct iovec* parts, int count, off_t offset),
     (fd, parts, count, offset))
WRAP(int, fstat, (int fd, struct stat* entry), (fd, entry))
WRAP(int, ftruncate, (int fd, off_t size), (fd, size))
WRAP(int, fsync, (int fd), (fd))
WRAP(int, rename, (const char* from, const char* to), (from, to))
WRAP(int, link, (const char* from, const char* to), (from, to))
WRAP(int, unlink, (const char* path), (path))
WRAP(int, flock, (int fd, int operation), (fd, operation))
WRAP(int, fchmod, (int fd, mode_t mode), (fd, mode))
}
