#include "backends/io/sample_reader.h"

#include <chrono>
#include <cstring>

#include "backends/io/runs.h"

namespace kelsdk::io {
namespace {

// What memory delivers at the least, where the system does not tell what is in it.
constexpr std::chrono::nanoseconds kSlowestCall = std::chrono::microseconds(100);
constexpr std::chrono::nanoseconds kSlowestByte{1};

}  // namespace

void SampleReader::Forget() {
  window_.Forget();
  for (ReadForecast& forecast : forecasts_) forecast = {};
  systemTells_ = true;
}

bool SampleReader::ReadAt(std::uint32_t stream, std::uint64_t offset, void* buffer,
                          std::size_t count, Error& error) {
  if (count == 0) return true;
  if (count > ReadWindow::kLargestRead) {
    struct iovec run = {buffer, count};
    return ReadLarge(stream, offset, &run, 1, count, error);
  }
  const std::uint8_t* const found = window_.Find(file_, offset, count);
  if (found == nullptr) return file_.ReadAt(offset, buffer, count, error);
  std::memcpy(buffer, found, count);
  return true;
}

bool SampleReader::ReadScatter(std::uint32_t stream, std::uint64_t offset, struct iovec* runs,
                               int runCount, Error& error) {
  const std::size_t count = Runs(runs, runCount).Left();
  if (count > ReadWindow::kLargestRead) {
    return ReadLarge(stream, offset, runs, runCount, count, error);
  }
  const std::uint8_t* found = window_.Find(file_, offset, count);
  if (found == nullptr) return file_.ReadScatter(offset, runs, runCount, error);
  for (int i = 0; i < runCount; ++i) {
    if (runs[i].iov_len != 0) std::memcpy(runs[i].iov_base, found, runs[i].iov_len);
    found += runs[i].iov_len;
  }
  return true;
}

bool SampleReader::ReadLarge(std::uint32_t stream, std::uint64_t offset, struct iovec* runs,
                             int runCount, std::size_t count, Error& error) {
  window_.Forget();
  ReadForecast& forecast = forecasts_[stream % kStreams];
  bool waited = false;
  if (!forecast.Expects(offset)) {
    if (!ReadPlain(offset, runs, runCount, error)) return false;
  } else if (systemTells_) {
    if (!ReadAndTell(offset, runs, runCount, &waited, error)) return false;
  } else if (!ReadAndTime(offset, runs, runCount, &waited, error)) {
    return false;
  }
  const ReadForecast::Range next = forecast.Note(offset, count, waited, file_.Size());
  if (next.count == 0) return true;
  if (systemTells_) {
    // Of its ends the reads beside it may have brought some.
    if (file_.IsInMemory(next.offset + next.count / 2)) return true;
    forecast.Renew();
  }
  file_.WillNeed(next.offset, next.count);
  return true;
}

bool SampleReader::ReadPlain(std::uint64_t offset, struct iovec* runs, int runCount,
                             Error& error) const {
  // A single run costs less in the plain form of the call.
  return runCount == 1 ? file_.ReadAt(offset, runs->iov_base, runs->iov_len, error)
                       : file_.ReadScatter(offset, runs, runCount, error);
}

// What is in memory first, without waiting: mostly that is all.
bool SampleReader::ReadAndTell(std::uint64_t offset, struct iovec* runs, int runCount, bool* waited,
                               Error& error) {
  Runs left(runs, runCount);
  const std::size_t got = file_.ReadFromMemory(offset, left.Next(), left.Count(), &systemTells_);
  left.Advance(got);
  if (left.Done()) return true;
  *waited = systemTells_;
  return file_.ReadScatter(offset + got, left.Next(), left.Count(), error);
}

bool SampleReader::ReadAndTime(std::uint64_t offset, struct iovec* runs, int runCount, bool* waited,
                               Error& error) const {
  using Clock = std::chrono::steady_clock;
  const std::size_t count = Runs(runs, runCount).Left();
  const Clock::time_point begin = Clock::now();
  if (!file_.ReadScatter(offset, runs, runCount, error)) return false;
  *waited = Clock::now() - begin > kSlowestCall + count * kSlowestByte;
  return true;
}

}  // namespace kelsdk::io
