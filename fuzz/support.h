#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace kelsdk::fuzz {

/// Bytes as a file that any reader can open by its path, and that never touches a disk. Larger
/// inputs than kMostBytes are not worth their time; Usable() says so.
class MemoryFile {
 public:
  static constexpr std::size_t kMostBytes = 64 * 1024;

  MemoryFile(const std::uint8_t* bytes, std::size_t size) : usable_(size <= kMostBytes) {
    descriptor_ = ::memfd_create("fuzz", MFD_CLOEXEC);
    if (descriptor_ < 0) std::abort();
    if (usable_ && ::write(descriptor_, bytes, size) != static_cast<ssize_t>(size)) std::abort();
    std::snprintf(path_, sizeof path_, "/proc/self/fd/%d", descriptor_);
  }
  ~MemoryFile() { ::close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  bool Usable() const { return usable_; }
  const char* path() const { return path_; }

 private:
  int descriptor_ = -1;
  bool usable_;
  char path_[40];
};

/// A promise that the input must not be able to break.
inline void Require(bool kept) {
  if (!kept) std::abort();
}

/// A folder in memory for one process, taken away at its end.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = "/dev/shm/kelcache-fuzz-" + std::to_string(::getpid()) + "-XXXXXX";
    Require(::mkdtemp(name.data()) != nullptr);
    path_ = name + "/";
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace kelsdk::fuzz
