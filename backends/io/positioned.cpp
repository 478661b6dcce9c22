#include "backends/io/positioned.h"

#include <unistd.h>

#include <cerrno>

namespace kelsdk::io {
namespace {

// The runs of memory that are still to be moved.
class Runs {
 public:
  Runs(struct iovec* runs, int count) : runs_(runs), count_(count) { SkipEmpty(); }

  bool Done() const { return count_ == 0; }
  struct iovec* Next() const {
    return runs_;
  }
  int Count() const { return count_; }

  std::size_t Left() const {
    std::size_t bytes = 0;
    for (int i = 0; i < count_; ++i) bytes += runs_[i].iov_len;
    return bytes;
  }

  void Advance(std::size_t bytes) {
    while (count_ > 0 && bytes >= runs_->iov_len) {
      bytes -= runs_->iov_len;
      ++runs_;
      --count_;
    }
    if (count_ == 0) return;
    runs_->iov_base = static_cast<char*>(runs_->iov_base) + bytes;
    runs_->iov_len -= bytes;
  }

 private:
  void SkipEmpty() { Advance(0); }

  struct iovec* runs_;
  int count_;
};

}  // namespace

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

bool ReadScatterFully(int descriptor, std::uint64_t offset, struct iovec* runs, int runCount,
                      Error& error) {
  for (Runs left(runs, runCount); !left.Done();) {
    const ssize_t got = ::preadv(descriptor, left.Next(), left.Count(), static_cast<off_t>(offset));
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

bool WriteGatherFully(int descriptor, std::uint64_t offset, struct iovec* runs, int runCount,
                      Error& error) {
  for (Runs left(runs, runCount); !left.Done();) {
    const ssize_t put =
        ::pwritev(descriptor, left.Next(), left.Count(), static_cast<off_t>(offset));
    if (put < 0) {
      if (errno == EINTR) continue;
      return error.SetSystem(errno, "writing %zu bytes at %llu", left.Left(),
                             static_cast<unsigned long long>(offset));
    }
    offset += static_cast<std::size_t>(put);
    left.Advance(static_cast<std::size_t>(put));
  }
  return true;
}

}  // namespace kelsdk::io
