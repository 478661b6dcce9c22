#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "backends/io/error.h"
#include "backends/io/input_file.h"
#include "backends/io/sample_reader.h"
#include "backends/nc/file_ends.h"
#include "backends/nc/records.h"

namespace kelsdk::nc {

/// One data file open for reading. Opening reads its end alone, whatever the number of samples;
/// the index of a channel is read when first asked for. A file whose trailer or index is missing
/// or damaged is read by stepping through its records up to the last whole time block. Opening
/// another file reuses the memory.
///
/// Operations may throw std::bad_alloc; memory is bounded by the file's size.
class DataReader {
 public:
  /// Refuses a file of another identity, and one without a single whole time block.
  bool Open(const std::string& path, const Identity& identity, io::Error& error);
  void Close();
  bool IsOpen() const { return file_.IsOpen(); }

  /// The arrays of a channel, to be read.
  io::SampleStream Arrays(std::uint32_t channel) { return {samples_, channel}; }
  /// True when the indices were missing or damaged.
  bool ReadsByRecords() const { return byRecords_; }
  /// One entry per channel that the file knows, which may be fewer than the cache has.
  const std::vector<DirectoryEntry>& Directory() const { return directory_; }

  /// The samples of a channel, ascending in time. Refers to memory of this object, until another
  /// file is opened.
  bool Index(std::uint32_t channel, std::span<const SampleEntry>* index, io::Error& error);

 private:
  struct ChannelIndex {
    bool loaded = false;
    std::vector<SampleEntry> samples;
  };

  bool LoadDirectory(io::Error& error);
  bool LoadIndex(std::uint32_t channel, io::Error& error);
  bool OpenByRecords(io::Error& error);

  io::InputFile file_;
  io::SampleReader samples_{file_};
  FileEnd end_;
  Identity identity_ = {};
  std::uint64_t dataEnd_ = 0;
  bool byRecords_ = false;
  std::vector<DirectoryEntry> directory_;
  std::vector<ChannelIndex> indices_;
  std::vector<std::uint8_t> directoryBytes_;
};

}  // namespace kelsdk::nc
