#pragma once

#include <cstdint>

namespace kelsdk::io {

/// Where the next of a run of large reads will be, for those that the system does not foresee:
/// every n-th frame, backwards, one channel of many. Says so only while reads wait for the disk or
/// the server, or would have waited; for a while after that, since what was foreseen does not wait.
class ReadForecast {
 public:
  /// Bytes of the file; none when `count` is 0.
  struct Range {
    std::uint64_t offset = 0;
    std::uint64_t count = 0;
  };

  /// Whether the read at `offset` is the one that was expected: the next one then is too.
  bool Expects(std::uint64_t offset) const;

  /// Takes note of a read, and gives the one to expect next, all of it in the file.
  /// @param waited    the bytes were not in memory; where nothing was expected it need not be known
  /// @param fileSize  bytes
  Range Note(std::uint64_t offset, std::uint64_t count, bool waited, std::uint64_t fileSize);

  /// The read that was given last would wait.
  void Renew() { left_ = kForecastsAfterWait; }

 private:
  static constexpr unsigned int kForecastsAfterWait = 32;

  std::uint64_t last_ = 0;       // where the last read was,
  std::uint64_t lastCount_ = 0;  // how many bytes it read,
  std::uint64_t step_ = 0;       // how far from the one before it; 0 when nothing is expected,
  std::uint64_t expected_ = 0;   // and where the next one is as far on
  unsigned int left_ = 0;        // forecasts, unless another read would wait
};

}  // namespace kelsdk::io
