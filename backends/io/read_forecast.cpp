#include "backends/io/read_forecast.h"

#include <algorithm>

namespace kelsdk::io {
namespace {

std::uint64_t Distance(std::uint64_t a, std::uint64_t b) {
  return std::max(a, b) - std::min(a, b);
}

}  // namespace

bool ReadForecast::Expects(std::uint64_t offset) const {
  // Compact arrays are of different lengths, so steps are only about equal.
  return step_ != 0 && Distance(offset, expected_) <= step_ / 8;
}

ReadForecast::Range ReadForecast::Note(std::uint64_t offset, std::uint64_t count, bool waited,
                                       std::uint64_t fileSize) {
  const bool expected = Expects(offset);
  const std::uint64_t error = Distance(offset, expected_);
  const std::uint64_t step = Distance(offset, last_);
  const bool forward = offset > last_;
  const bool inFile = offset < fileSize && (forward ? step < fileSize - offset : step <= offset);
  // The system itself foresees reads that follow one another.
  const bool followsOn = forward && step <= lastCount_ + lastCount_ / 8;
  last_ = offset;
  lastCount_ = count;
  step_ = inFile && !followsOn ? step : 0;
  expected_ = forward ? offset + step : offset - step;
  if (waited) Renew();
  if (!expected || step_ == 0 || left_ == 0) return {};
  --left_;
  const std::uint64_t begin = expected_ - std::min(expected_, error);
  return {begin, std::min(count + 2 * error, fileSize - begin)};
}

}  // namespace kelsdk::io
