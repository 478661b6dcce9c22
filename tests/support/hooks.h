#pragma once

#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

/// What every test program replaces: the allocator (operator new and KelMalloc) and, by --wrap of
/// the linker, the system calls that the back-ends make on files. Calls are counted, the n-th can
/// be made to fail or to kill the process, transfers can be shortened, and what makes files durable
/// can be recorded.
namespace kelsdk::test {

/// Allocations so far, of either kind.
unsigned long AllocationCount();
/// Blocks from KelMalloc that have not come back.
long OutstandingBlocks();
/// Wrapped system calls so far: open, pread, preadv, preadv2, pwrite, pwritev, fstat, ftruncate,
/// fsync, syncfs, sync_file_range, rename, link, unlink, flock, fchmod, posix_fadvise.
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

/// While it lives, no positioned transfer moves more than `most` bytes with one call.
class ShortenTransfers {
 public:
  explicit ShortenTransfers(std::size_t most);
  ~ShortenTransfers();
  ShortenTransfers(const ShortenTransfers&) = delete;
  ShortenTransfers& operator=(const ShortenTransfers&) = delete;
};

/// A step on the way of a file to its name: its content or size was changed, it (or a folder) or
/// its whole file system was made durable, or it was renamed.
struct DiskEvent {
  enum EKind { eWrite, eSync, eSyncAll, eRename };

  EKind kind;
  std::string path;
  std::string renamedTo = {};

  bool operator==(const DiskEvent&) const = default;
};

/// While it lives, notes the steps that succeed; writes of a file that follow one
/// another are one step.
class RecordDisk {
 public:
  RecordDisk();
  ~RecordDisk();
  RecordDisk(const RecordDisk&) = delete;
  RecordDisk& operator=(const RecordDisk&) = delete;
  const std::vector<DiskEvent>& Events() const;
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
