#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/support/files.h"

namespace kelsdk::fuzz {

/// A promise that the input must not be able to break.
inline void Require(bool kept) {
  if (!kept) std::abort();
}

/// Bytes as a file that any reader can open by its path, and that never touches a disk. Larger
/// inputs than kMostBytes are not worth their time; Usable() says so.
class MemoryFile {
 public:
  static constexpr std::size_t kMostBytes = 64 * 1024;

  MemoryFile(const std::uint8_t* bytes, std::size_t size) : usable_(size <= kMostBytes) {
    Require(descriptor_ >= 0);
    Require(!usable_ || ::write(descriptor_, bytes, size) == static_cast<ssize_t>(size));
  }
  ~MemoryFile() { ::close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  bool Usable() const { return usable_; }
  const char* path() const { return path_.c_str(); }

 private:
  const int descriptor_ = ::memfd_create("fuzz", MFD_CLOEXEC);
  const std::string path_ = "/proc/self/fd/" + std::to_string(descriptor_);
  const bool usable_;
};

/// A folder in memory.
struct ScratchFolder : test::ScratchFolder {
  ScratchFolder() : test::ScratchFolder("/dev/shm") {}
};

}  // namespace kelsdk::fuzz
