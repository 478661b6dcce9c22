#pragma once

#include <sys/uio.h>

#include <cstddef>

namespace kelsdk::io {

/// The runs of memory that a transfer has still to move.
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

}  // namespace kelsdk::io
