#include "backends/io/read_window.h"

#include <algorithm>
#include <new>

namespace kelsdk::io {

const std::uint8_t* ReadWindow::Find(const InputFile& file, std::uint64_t offset,
                                     std::size_t count) {
  const bool follows = Follows(offset);
  const bool followed = follows_;
  const bool holds = Holds(offset, count);
  if (!follows) Forget();
  next_ = offset + count;
  follows_ = follows;
  if (!follows) return nullptr;
  if (holds) return bytes_.get() + (offset - begin_);
  return followed ? Fill(file, offset, count) : nullptr;
}

void ReadWindow::Forget() {
  next_ = ~std::uint64_t{0};
  follows_ = false;
  held_ = 0;
  nextBytes_ = kFirstBytes;
}

// From the first byte that is asked for, though the window before may hold some of them: what is
// handed out in one piece was read in one. What goes wrong is told by the read that the caller is
// left to make.
const std::uint8_t* ReadWindow::Fill(const InputFile& file, std::uint64_t offset,
                                     std::size_t count) {
  if (bytes_ == nullptr) {
    capacity_ = static_cast<std::size_t>(std::min<std::uint64_t>(kMostBytes, file.Size()));
    bytes_.reset(new (std::nothrow) std::uint8_t[capacity_]);
  }
  held_ = 0;
  if (bytes_ == nullptr || count > capacity_) return nullptr;
  const std::size_t wanted = std::min(std::max(nextBytes_, 4 * count), capacity_);
  const std::size_t got = file.ReadSome(offset, bytes_.get(), wanted);
  if (got < count) return nullptr;
  begin_ = offset;
  held_ = got;
  nextBytes_ = std::min(2 * wanted, kMostBytes);
  return bytes_.get();
}

}  // namespace kelsdk::io
