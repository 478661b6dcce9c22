#pragma once

#include <cstddef>
#include <cstdint>

#include "backends/io/error.h"
#include "backends/io/input_file.h"
#include "backends/nc/records.h"

namespace kelsdk::nc {

/// Reads what a data file begins with.
bool ReadFileHeader(const io::InputFile& file, FileHeader* header, io::Error& error);

/// What a data file ends with: its trailer and, read along with it, what stands before that.
class FileEnd {
 public:
  /// False when the end cannot be read. A file without a sound trailer is read with HasTrailer
  /// false.
  bool Read(const io::InputFile& file, io::Error& error);

  bool HasTrailer() const { return hasTrailer_; }
  const Trailer& GetTrailer() const { return trailer_; }

  /// Reads a part of that file, which need not be in its end.
  bool ReadAt(const io::InputFile& file, std::uint64_t offset, void* buffer, std::size_t size,
              io::Error& error) const;

 private:
  // Trailer, directory and indices of a per-frame file of 31 channels.
  static constexpr std::size_t kMostBytes = 4096;

  std::uint64_t start_ = 0;  // in the file, of bytes_
  bool hasTrailer_ = false;
  Trailer trailer_;
  std::uint8_t bytes_[kMostBytes];
};

}  // namespace kelsdk::nc
