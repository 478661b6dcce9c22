#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "backends/io/checked.h"
#include "backends/io/input_file.h"

namespace kelsdk::io {

/// Bytes of a file read ahead of small reads that follow one another, each of which would be a
/// system call otherwise. After two neighbouring reads the third reads a window, each next window
/// is twice as long, and the first read that does not follow on ends it: a window hands out its
/// bytes once, in ascending order, and what is read again is read from the file again.
class ReadWindow {
 public:
  /// Longer reads gain nothing from being copied once more.
  static constexpr std::size_t kLargestRead = std::size_t{16} * 1024;

  /// The `count` bytes at `offset`, until the next call; null when they are to be read by
  /// themselves. A window is read for them when it is their turn. Allocates once, at most
  /// kMostBytes, and does without when there is no memory. `file` is the same until Forget.
  const std::uint8_t* Find(const InputFile& file, std::uint64_t offset, std::size_t count);

  /// Whether the next read would find these bytes.
  bool Holds(std::uint64_t offset, std::size_t count) const {
    return Follows(offset) && offset >= begin_ && RangeFits(offset - begin_, count, held_);
  }

  /// The next read follows none.
  void Forget();

 private:
  static constexpr std::size_t kFirstBytes = std::size_t{8} * 1024;
  static constexpr std::size_t kMostBytes = std::size_t{256} * 1024;
  /// Reads are neighbours when no more than this lies between them: copying it costs less than a
  /// system call.
  static constexpr std::uint64_t kWidestGap = 4096;

  bool Follows(std::uint64_t offset) const {
    return offset >= next_ && offset - next_ <= kWidestGap;
  }
  const std::uint8_t* Fill(const InputFile& file, std::uint64_t offset, std::size_t count);

  std::uint64_t next_ = ~std::uint64_t{0};  // where the last read ended
  bool follows_ = false;                    // the last read followed the one before it
  std::uint64_t begin_ = 0;                 // of the window in the file,
  std::size_t held_ = 0;                    // and how many bytes of it there are
  std::size_t nextBytes_ = kFirstBytes;     // of the window to come
  std::size_t capacity_ = 0;
  std::unique_ptr<std::uint8_t[]> bytes_;
};

}  // namespace kelsdk::io
