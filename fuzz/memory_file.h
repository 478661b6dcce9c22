#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace kelfuzz {

/// Bytes as a file that lives in memory, reached by a path.
class MemoryFile {
 public:
  MemoryFile(const void* bytes, std::size_t size) : descriptor_(::memfd_create("fuzz", 0)) {
    if (descriptor_ < 0 || ::pwrite(descriptor_, bytes, size, 0) != ssize_t(size)) std::abort();
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
  }
  ~MemoryFile() { ::close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  const char* path() const { return path_.c_str(); }

 private:
  int descriptor_;
  std::string path_;
};

inline void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace kelfuzz
