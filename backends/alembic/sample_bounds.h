#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelsdk::alembic {

/// How long the blocks of one property's samples can be at most. A block says itself how long it
/// is, which costs a read; but blocks do not overlap, so one ends where the next that is known of
/// begins. Of a file in which they do overlap the bounds are wrong.
class SampleBounds {
 public:
  /// Adds a sample whose block begins at `offset`; blocks end at `fileSize` at the latest.
  void Add(std::uint64_t offset, std::uint64_t fileSize) {
    begins_.push_back(offset);
    ends_.push_back(offset < fileSize ? fileSize : offset);
  }

  /// Begins a list of other blocks, which tells most when it ascends, as most lists do.
  void StartList() { next_ = 0; }
  /// A block of the list begins at `offset`.
  void Note(std::uint64_t offset);

  /// The size of a sample is known: there is nothing to bound any more.
  void Settle(std::size_t sample) { ends_[sample] = begins_[sample]; }

  std::size_t Count() const { return begins_.size(); }
  /// The most bytes that the block of a sample can take, from its beginning; 0 for a settled one
  /// and for one that lies beyond the file.
  std::uint64_t Most(std::size_t sample) const { return ends_[sample] - begins_[sample]; }
  /// The sample whose block can be the longest, the first of equal ones; Count() is not 0.
  std::size_t Longest() const;

 private:
  std::vector<std::uint64_t> begins_;
  std::vector<std::uint64_t> ends_;
  std::size_t next_ = 0;  // the first sample that the current list has not bounded
};

}  // namespace kelsdk::alembic
