#pragma once

#include "backends/io/input_file.h"
#include "backends/io/sample_reader.h"
#include "backends/pc2/header.h"

namespace kelsdk::pc2 {

class Reader {
 public:
  /// Opens a file and checks its header against its size. A version other than 1 is let through
  /// with nothing else checked, for the caller to refuse; no sample of it can be read.
  bool Open(const char* path, io::Error& error);

  const Header& header() const { return header_; }
  std::uint64_t FileSize() const { return file_.Size(); }
  std::uint32_t WholeSamples() const { return header_.WholeSamples(file_.Size()); }

  /// True when all samples that the header claims are there.
  bool IsWhole() const {
    return header_.version == kVersion && WholeSamples() == header_.sampleCount;
  }

  /// Reads the first `*pointCount` points of a sample, or as many as it has, straight into `points`
  /// (3 floats each), with at most one positioned read; `*pointCount` becomes their number.
  bool Read(std::uint32_t sample, float* points, std::uint32_t* pointCount, io::Error& error);

  /// Reads `count` whole samples from `first` on with one positioned read.
  bool ReadRun(std::uint32_t first, std::uint32_t count, float* points, io::Error& error);

 private:
  bool HasSample(std::uint32_t sample, io::Error& error);

  io::InputFile file_;
  io::SampleReader samples_{file_};
  Header header_;
};

}  // namespace kelsdk::pc2
