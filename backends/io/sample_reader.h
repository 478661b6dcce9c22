#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

#include "backends/io/error.h"
#include "backends/io/input_file.h"
#include "backends/io/read_forecast.h"
#include "backends/io/read_window.h"

namespace kelsdk::io {

/// Reads samples of a file in the orders in which they are played. Small ones that follow one
/// another come from a window that is read ahead; large ones go straight to their place with one
/// call, and while they have to wait, the system is told which one comes next.
class SampleReader {
 public:
  /// `file` outlives the reader.
  explicit SampleReader(const InputFile& file) : file_(file) {}

  /// To be called when another file has been opened.
  void Forget();

  /// Whether bytes that follow on what was read last are in memory already.
  bool Holds(std::uint64_t offset, std::size_t count) const { return window_.Holds(offset, count); }

  /// Reads all `count` bytes at `offset` or fails. `stream` numbers what is played side by side,
  /// the channel for example: what comes next is foreseen for each by itself.
  bool ReadAt(std::uint32_t stream, std::uint64_t offset, void* buffer, std::size_t count,
              Error& error);
  /// The same into up to 1024 runs of memory, which are used up.
  bool ReadScatter(std::uint32_t stream, std::uint64_t offset, struct iovec* runs, int runCount,
                   Error& error);

 private:
  static constexpr std::uint32_t kStreams = 8;  // that are foreseen at a time

  bool ReadLarge(std::uint32_t stream, std::uint64_t offset, struct iovec* runs, int runCount,
                 std::size_t count, Error& error);
  bool ReadPlain(std::uint64_t offset, struct iovec* runs, int runCount, Error& error) const;
  bool ReadAndTell(std::uint64_t offset, struct iovec* runs, int runCount, bool* waited,
                   Error& error);
  bool ReadAndTime(std::uint64_t offset, struct iovec* runs, int runCount, bool* waited,
                   Error& error) const;

  const InputFile& file_;
  ReadWindow window_;
  ReadForecast forecasts_[kStreams];
  bool systemTells_ = true;  // whether bytes are in memory
};

/// One stream of a reader, as what reads arrays takes it.
class SampleStream {
 public:
  SampleStream(SampleReader& reader, std::uint32_t number) : reader_(reader), number_(number) {}

  bool Holds(std::uint64_t offset, std::size_t count) const { return reader_.Holds(offset, count); }
  bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, Error& error) const {
    return reader_.ReadAt(number_, offset, buffer, count, error);
  }
  bool ReadScatter(std::uint64_t offset, struct iovec* runs, int runCount, Error& error) const {
    return reader_.ReadScatter(number_, offset, runs, runCount, error);
  }

 private:
  SampleReader& reader_;
  std::uint32_t number_;
};

}  // namespace kelsdk::io
