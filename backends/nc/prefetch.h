#pragma once

#include <cstdint>
#include <vector>

#include "backends/io/error.h"
#include "backends/io/sample_reader.h"
#include "backends/nc/arrays.h"

namespace kelsdk::nc {

/// Reads an array together with those beside it that are due, with at most one system call, and
/// hands these out from memory. Due are the channels that were read at the time before and not yet
/// at this one. May throw std::bad_alloc.
class Prefetch {
 public:
  /// `channelCount` is that of the cache.
  void Start(std::size_t channelCount) { lastRead_.assign(channelCount, 0); }

  /// A channel is read at a time.
  void NoteRead(std::uint32_t channel, std::int32_t tick);
  bool IsDue(std::uint32_t channel) const { return lastRead_[channel] + 1 == timesRead_; }

  /// The bytes of a range, when they are here.
  const std::uint8_t* Find(const FileRange& range) const;

  /// Whether an array is small enough that what reading it along saves is worth its copy.
  static bool IsWorthwhile(const FileRange& range);
  /// Begins a new choice of what to read along.
  void ForgetOffers() { offers_.clear(); }
  /// An array of the same file that is due.
  void Offer(const FileRange& range);
  /// The run of the file with an array and those offered that stand near it.
  FileRange RangeAround(const FileRange& own);
  /// Reads a run. The array in it that is stored raw, where `straight` is not null, goes there and
  /// is not kept.
  bool Read(const io::SampleStream& arrays, const FileRange& range, const FileRange& own,
            void* straight, io::Error& error);

  /// Forgets the arrays: another file follows.
  void Clear() { before_ = after_ = FileRange(); }

 private:
  std::int32_t currentTick_ = 0;
  std::uint64_t timesRead_ = 2;          // counts the changes of time; channels start at 0: unread
  std::vector<std::uint64_t> lastRead_;  // by channel, timesRead_ when it was read last
  std::vector<FileRange> offers_;
  std::vector<std::uint8_t> bytes_;  // only grows
  FileRange before_;                 // of the file, at the start of bytes_
  FileRange after_;                  // right behind it
};

}  // namespace kelsdk::nc
