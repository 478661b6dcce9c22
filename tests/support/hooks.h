#pragma once

#include <cerrno>

/// What every test program replaces: the allocator (operator new and KelMalloc) and, by --wrap of
/// the linker, the system calls that the back-ends make on files. Calls are counted, and the n-th
/// can be made to fail or to kill the process.
namespace kelsdk::test {

/// Allocations so far, of either kind.
unsigned long AllocationCount();
/// Blocks from KelMalloc that have not come back.
long OutstandingBlocks();
/// Wrapped system calls so far: open, pread, preadv, pwrite, pwritev, fstat, ftruncate, fsync,
/// rename, link, unlink, flock, fchmod, posix_fadvise.
unsigned long SystemCallCount();
/// Open descriptors of this process.
int OpenDescriptors();

/// Which allocations to make fail: code under test beside stand-ins of a test's own wants only
/// those from KelMalloc.
enum class EAllocations { eAll, eKelMalloc };

/// While it lives, the n-th allocation from here (counted from 1) fails, and only that one.
class FailAllocation {
 public:
  explicit FailAllocation(unsigned long n, EAllocations which = EAllocations::eAll);
  ~FailAllocation();
  FailAllocation(const FailAllocation&) = delete;
  FailAllocation& operator=(const FailAllocation&) = delete;
  bool Reached() const;
};

/// While it lives, the n-th wrapped system call from here fails with `errorNumber`. `andAllLater`
/// keeps failing, as a full disk does.
class FailSystemCall {
 public:
  explicit FailSystemCall(unsigned long n, int errorNumber = EIO, bool andAllLater = false);
  ~FailSystemCall();
  FailSystemCall(const FailSystemCall&) = delete;
  FailSystemCall& operator=(const FailSystemCall&) = delete;
  bool Reached() const;
};

/// From here on, the n-th wrapped system call is not made: the process ends at once with status 99,
/// as if killed. For the child of a fork.
void DieAtSystemCall(unsigned long n);
inline constexpr int kDiedStatus = 99;

/// Runs `body` with the 1st, 2nd, ... allocation failing until one run has none left to fail.
/// Returns how many were made to fail.
template <typename Body>
unsigned long FailEachAllocation(Body&& body, EAllocations which = EAllocations::eAll) {
  for (unsigned long n = 1;; ++n) {
    FailAllocation failure(n, which);
    body();
    if (!failure.Reached()) return n - 1;
  }
}

template <typename Body>
unsigned long FailEachSystemCall(Body&& body, int errorNumber = EIO) {
  for (unsigned long n = 1;; ++n) {
    FailSystemCall failure(n, errorNumber);
    body();
    if (!failure.Reached()) return n - 1;
  }
}

}  // namespace kelsdk::test
