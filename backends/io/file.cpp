#include "backends/io/file.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "backends/io/runs.h"

namespace kelsdk::io {

File::File(File&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

File& File::operator=(File&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

File::~File() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

bool File::ReadAt(std::uint64_t offset, void* buffer, std::size_t count, Error& error) const {
  auto* target = static_cast<char*>(buffer);
  while (count > 0) {
    const ssize_t got = ::pread(descriptor_, target, count, static_cast<off_t>(offset));
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

bool File::ReadScatter(std::uint64_t offset, struct iovec* runs, int runCount, Error& error) const {
  for (Runs left(runs, runCount); !left.Done();) {
    const ssize_t got =
        ::preadv(descriptor_, left.Next(), left.Count(), static_cast<off_t>(offset));
    if (got < 0) {
      if (errno == EINTR) continue;
      return error.SetSystem(errno, "reading %zu bytes at %llu", left.Left(),
                             static_cast<unsigned long long>(offset));
    }
    if (got == 0) {
      return error.Set(Error::eCutShort, "the file ends %zu bytes early, at %llu", left.Left(),
                       static_cast<unsigned long long>(offset));
    }
    offset += static_cast<std::size_t>(got);
    left.Advance(static_cast<std::size_t>(got));
  }
  return true;
}

}  // namespace kelsdk::io
