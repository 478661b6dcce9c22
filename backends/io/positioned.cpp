#include "backends/io/positioned.h"

#include <unistd.h>

#include <cerrno>

namespace kelsdk::io {

bool ReadFully(int descriptor, std::uint64_t offset, void* buffer, std::size_t count,
               Error& error) {
  auto* target = static_cast<char*>(buffer);
  while (count > 0) {
    const ssize_t got = ::pread(descriptor, target, count, static_cast<off_t>(offset));
    if (got < 0) {
      if (errno == EINTR) continue;
      return error.SetSystem(errno, "reading %zu bytes at %llu", count,
                             static_cast<unsigned long long>(offset));
    }
    if (got == 0) {
      return error.Set(Error::eCutShort, "the file ends %zu bytes early, at %llu", count,
                       static_cast<unsigned long long>(offset));
    }
    const auto done = static_cast<std::size_t>(got);
    target += done;
    offset += done;
    count -= done;
  }
  return true;
}

bool WriteFully(int descriptor, std::uint64_t offset, const void* bytes, std::size_t count,
                Error& error) {
  const auto* source = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t put = ::pwrite(descriptor, source, count, static_cast<off_t>(offset));
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
  return true;
}

}  // namespace kelsdk::io
