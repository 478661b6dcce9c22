#pragma once

#include <cstdint>
#include <vector>

#include "backends/io/error.h"
#include "backends/io/input_file.h"
#include "backends/nc/description.h"
#include "backends/nc/records.h"

namespace kelsdk::nc {

/// Steps through the records of a data file, header by header. Payloads are not read.
class RecordScanner {
 public:
  /// @param end    where the records end at the latest; at most the file's size
  /// @param start  where one begins
  RecordScanner(const io::InputFile& file, std::uint64_t end, std::uint64_t start = kHeaderSize)
      : file_(file), end_(end), position_(start) {}

  /// Takes the next record, whose payload lies inside the file. False at the end and at anything
  /// that is no whole record; `error` tells which, and is clear at the end.
  bool Next(RecordHeader* header, io::Error& error);

  /// Where the next record begins.
  std::uint64_t Position() const { return position_; }

 private:
  const io::InputFile& file_;
  std::uint64_t end_;
  std::uint64_t position_;
};

/// What the records of a data file say without its indices, up to the last whole time block.
struct Scan {
  FileHeader header;
  std::vector<Channel> channels;  ///< name, interpretation, type and interval
  std::vector<std::vector<SampleEntry>> indices;
  std::uint32_t blockCount = 0;
  std::uint64_t end = 0;  ///< of the last whole time block
  io::Error stop;         ///< why the scan went no further; clear when all was read
};

/// Told about every record that belongs to a whole sequence so far.
class RecordVisitor {
 public:
  virtual ~RecordVisitor() = default;
  /// `headerOffset` is where the record begins.
  virtual void Visit(const RecordHeader& header, std::uint64_t headerOffset) = 0;
};

/// Scans up to `end`. False when not even the file's header is sound, with `error` set. May throw
/// std::bad_alloc; memory is bounded by the file's size.
bool ScanRecords(const io::InputFile& file, std::uint64_t end, Scan* scan, io::Error& error,
                 RecordVisitor* visitor = nullptr);

}  // namespace kelsdk::nc
