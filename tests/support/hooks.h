#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What every test program replaces: the allocator (operator new and KelMalloc) and, by --wrap of
/// the linker, the system calls that the back-ends make on files. Calls are counted, the n-th can
/// be made to fail or to kill the process, transfers can be shortened, and what makes files durable
/// can be recorded.
namespace kelsdk::test {

/// A step on the way of a file to its name: its content or size was changed, it (or a folder) or
/// its whole file system was made durable, or it was renamed.
struct DiskEvent {
  enum EKind { eWrite, eSync, eSyncAll, eRename };

  EKind kind;
  std::string path;
  std::string renamedTo = {};

  bool operator==(const DiskEvent&) const = default;
};

/// Which allocations to make fail: code under test beside stand-ins of a test's own wants only
/// those from KelMalloc.
enum class EAllocations { eAll, eKelMalloc };

/// How the replaced functions behave now.
namespace hooks {

/// Calls, counted, and a countdown to the one that fails; 0 is none.
struct Trigger {
  std::atomic<unsigned long> count{0};
  std::atomic<unsigned long> left{0};
  std::atomic<bool> reached{false};
  std::atomic<bool> andAllLater{false};

  void Arm(unsigned long n, bool keepFailing = false) {
    reached = false;
    andAllLater = keepFailing;
    left = n;
  }
  bool Fires();
};

inline Trigger allocations;
inline std::atomic<EAllocations> failing{EAllocations::eAll};
inline std::atomic<long> outstanding{0};
inline Trigger systemCalls;
inline std::atomic<int> systemCallError{0};
inline std::atomic<std::size_t> mostBytes{SIZE_MAX};
inline std::atomic<bool> recording{false};
inline std::vector<DiskEvent> events;

/// Lasts as long as its object.
struct Scope {
  Scope() = default;
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;
};

}  // namespace hooks

/// Allocations so far, of either kind.
inline unsigned long AllocationCount() {
  return hooks::allocations.count;
}
/// Blocks from KelMalloc that have not come back.
inline long OutstandingBlocks() {
  return hooks::outstanding;
}
/// Wrapped system calls so far: open, pread, preadv, preadv2, pwrite, pwritev, fstat, ftruncate,
/// fsync, syncfs, sync_file_range, rename, link, unlink, flock, fchmod, posix_fadvise.
inline unsigned long SystemCallCount() {
  return hooks::systemCalls.count;
}
/// Open descriptors of this process.
int OpenDescriptors();

/// While it lives, the n-th allocation from here (counted from 1) fails, and only that one.
struct FailAllocation : hooks::Scope {
  explicit FailAllocation(unsigned long n, EAllocations which = EAllocations::eAll) {
    hooks::failing = which;
    hooks::allocations.Arm(n);
  }
  ~FailAllocation() { hooks::allocations.left = 0; }
  bool Reached() const { return hooks::allocations.reached; }
};

/// While it lives, the n-th wrapped system call from here fails with `errorNumber`. `andAllLater`
/// keeps failing, as a full disk does.
struct FailSystemCall : hooks::Scope {
  explicit FailSystemCall(unsigned long n, int errorNumber = EIO, bool andAllLater = false) {
    hooks::systemCallError = errorNumber;
    hooks::systemCalls.Arm(n, andAllLater);
  }
  ~FailSystemCall() { hooks::systemCalls.left = hooks::systemCalls.andAllLater = 0; }
  bool Reached() const { return hooks::systemCalls.reached; }
};

/// While it lives, no positioned transfer moves more than `most` bytes with one call.
struct ShortenTransfers : hooks::Scope {
  explicit ShortenTransfers(std::size_t most) { hooks::mostBytes = most; }
  ~ShortenTransfers() { hooks::mostBytes = SIZE_MAX; }
};

/// While it lives, notes the steps that succeed; writes of a file that follow one
/// another are one step.
struct RecordDisk : hooks::Scope {
  RecordDisk() { hooks::recording = true; }
  ~RecordDisk() {
    hooks::recording = false;
    hooks::events.clear();
  }
  const std::vector<DiskEvent>& Events() const { return hooks::events; }
};

/// From here on, the n-th wrapped system call is not made: the process ends at once with status 99,
/// as if killed. For the child of a fork.
void DieAtSystemCall(unsigned long n);
inline constexpr int kDiedStatus = 99;

/// Runs `body` with the 1st, 2nd, ... allocation or system call failing until one run has none left
/// to fail. Returns how many were made to fail.
template <typename Failure, typename Body, typename... How>
unsigned long FailEach(const Body& body, How... how) {
  for (unsigned long n = 1;; ++n) {
    const Failure failure(n, how...);
    body();
    if (!failure.Reached()) return n - 1;
  }
}

}  // namespace kelsdk::test
