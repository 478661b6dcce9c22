#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "backends/io/error.h"
#include "backends/io/output_file.h"
#include "backends/nc/description.h"
#include "backends/nc/records.h"

namespace kelsdk::nc {

/// Writes one data file: its header, then records, then the indices. What is small waits in memory
/// and goes to disk with the next large array or the end of the time block, so that a block of
/// small arrays costs one system call, and a large array one of its own. The end of a block goes
/// out at once, for from then on the block is to survive the writer. A call that fails leaves the
/// file as it was at the end of the last block, plus what no reader looks at.
///
/// Every operation may throw std::bad_alloc.
class DataWriter {
 public:
  /// Begins a new file; the header goes out with the first record.
  bool Create(const std::string& path, const FileHeader& header, io::Error& error);

  /// Goes on with a file that Finish has ended: cuts the indices off.
  bool Reopen(const std::string& path, const FileLayout& layout, std::uint64_t dataEnd,
              io::Error& error);

  /// From here on the end of a block is as small as what else waits: for a writer whose blocks are
  /// of no use without the end.
  void LetBlocksWait() { blocksWait_ = true; }

  bool IsOpen() const { return file_.IsOpen(); }
  /// Where the next record begins.
  std::uint64_t End() const { return end_ + pending_.size(); }

  void AddChannel(std::uint32_t index, const Channel& channel);

  /// @param entry  in: tick, count and checksum; out: where and in how many bytes it is stored
  /// @param encoded  the compact form of the array, or null to store it as it is
  bool AddArray(std::uint32_t channel, EType type, const void* array, const std::uint8_t* encoded,
                std::size_t encodedSize, SampleEntry* entry, io::Error& error);

  /// A sample that equals an earlier one of its channel, whose place `entry` holds.
  void AddRepeat(std::uint32_t channel, EType type, const SampleEntry& entry);

  bool EndBlock(std::int32_t tick, std::uint32_t arrayCount, io::Error& error);

  /// Writes the indices, one per channel, and the trailer, which makes the file complete, though
  /// not durable yet.
  bool Finish(std::span<const Channel> channels, std::span<const std::vector<SampleEntry>> indices,
              const Identity& identity, std::uint32_t blockCount, io::Error& error);

  /// Reads what was written, which may not be on disk yet.
  bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, io::Error& error) const;
  bool Close(io::Error& error) { return file_.Close(error); }

 private:
  std::uint8_t* Pend(std::size_t size);
  bool Flush(io::Error& error);
  bool AddSmallArray(const RecordHeader& header, const void* stored, io::Error& error);

  io::OutputFile file_;
  bool blocksWait_ = false;
  EEncoding encoding_ = eRaw;
  std::uint64_t end_ = 0;                  ///< bytes on disk
  std::vector<std::uint8_t> pending_;      ///< whole records that follow them
  std::vector<DirectoryEntry> directory_;  ///< kept from file to file for its memory alone
};

}  // namespace kelsdk::nc
