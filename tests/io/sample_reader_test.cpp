// Samples read in the orders in which they are played: the right bytes, few calls, and what a file
// that changes meanwhile shows of itself.
#include <algorithm>
#include <cerrno>
#include <random>
#include <vector>

#include "backends/io/sample_reader.h"
#include "tests/support/fixture.h"
#include "tests/support/hooks.h"

namespace kelsdk::io {
namespace {

using test::Bytes;

constexpr std::size_t kFrame = 1200;
constexpr std::size_t kLarge = 100'000;

class Samples : public test::FileTest {
 protected:
  void TearDown() override {
    file_.Close();
    FileTest::TearDown();
  }

  static Bytes Noise(std::size_t size, unsigned int seed = 1) {
    std::minstd_rand random(seed);
    Bytes bytes(size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random() >> 8);
    return bytes;
  }

  void Open(std::size_t size) {
    content_ = Noise(size);
    test::WriteBytes(path_, content_);
    ASSERT_TRUE(file_.Open(path_.c_str(), error_)) << error_.text();
  }

  // In one piece, or in two where `cut` is not 0.
  bool Read(std::uint64_t offset, std::size_t count, std::size_t cut = 0) {
    read_.assign(count, 0);
    struct iovec runs[] = {{read_.data(), cut}, {read_.data() + cut, count - cut}};
    return cut == 0 ? reader_.ReadAt(0, offset, read_.data(), count, error_)
                    : reader_.ReadScatter(0, offset, runs, 2, error_);
  }
  // Whether what was read is what these bytes hold there.
  bool IsPartOf(const Bytes& bytes, std::uint64_t offset) const {
    return std::equal(read_.begin(), read_.end(), bytes.begin() + std::ptrdiff_t(offset));
  }
  bool ReadsContent(std::uint64_t offset, std::size_t count, std::size_t cut = 0) {
    return Read(offset, count, cut) && IsPartOf(content_, offset);
  }
  void Play(std::uint64_t first, std::uint64_t step, std::size_t size, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      ASSERT_TRUE(ReadsContent(first + i * step, size)) << i << ": " << error_.text();
    }
  }

  const std::string path_ = folder_.File("samples");
  Bytes content_;
  Bytes read_;
  Error error_;
  InputFile file_;
  SampleReader reader_{file_};
};

// In order, with gaps, backwards, at random, of all sizes, in one piece or several; also when the
// system delivers in parts or a call fails that nobody waits for.
TEST_F(Samples, AreTheBytesOfTheFile) {
  Open(2'000'000);
  std::minstd_rand random(3);
  const auto any = [&](std::size_t most) { return std::size_t{random()} % (most + 1); };
  for (int run = 0; run < 300; ++run) {
    const test::ShortenTransfers shorter(any(3) == 0 ? 1 + any(5000) : SIZE_MAX);
    const std::size_t size = any(5) == 0 ? any(60'000) : any(3000);
    const std::size_t gap = any(2) * any(5000);
    const bool backwards = any(3) == 0;
    std::size_t offset = any(content_.size());
    for (int i = 0; i < 40; ++i) {
      const std::size_t count = size - any(size / 4);
      if (offset + count > content_.size()) break;
      ASSERT_TRUE(ReadsContent(offset, count, any(3) == 0 ? any(count) : 0)) << error_.text();
      const std::size_t step = count + gap;
      if (backwards && step > offset) break;
      offset = backwards ? offset - step : offset + step;
    }
  }
}

TEST_F(Samples, TakeAtMostACallEachAndNoMemoryButOnce) {
  Open(10'000 * kFrame);
  // Where the system does not tell what is in memory, that is asked once, and a slow read may pass
  // for one that waited.
  std::uint8_t byte = 0;
  const struct iovec run = {&byte, 1};
  bool tells = true;
  file_.ReadFromMemory(0, &run, 1, &tells);
  const unsigned long ofLarge = tells ? 80 : 161;
  Play(0, kFrame, kFrame, 3);  // the third takes the window's memory
  read_.reserve(kLarge);
  const unsigned long allocations = test::AllocationCount();
  const struct {
    const char* how;
    std::uint64_t first, step;
    std::size_t size, count;
    unsigned long calls;
  } rows[] = {{"forward", 0, kFrame, kFrame, 10'000, 59},
              {"with what others wrote in between", 0, kFrame + 88, kFrame, 9'000, 59},
              {"backwards", 1'000 * kFrame, 0 - kFrame, kFrame, 1'000, 1'000},
              {"the same", 0, 0, kFrame, 100, 100},
              {"far apart", 0, 10 * kFrame, kFrame, 100, 100},
              {"large", 0, kLarge, kLarge, 80, ofLarge},
              {"large and apart", 0, kLarge * 4 / 3, kLarge, 80, ofLarge}};
  for (const auto& row : rows) {
    const unsigned long before = test::SystemCallCount();
    Play(row.first, row.step, row.size, row.count);
    EXPECT_LE(test::SystemCallCount() - before, row.calls) << row.how;
  }
  EXPECT_EQ(test::AllocationCount(), allocations);
}

TEST_F(Samples, AChangedFileShowsAtOnceWhenReadAgainAndWhenAWindowEnds) {
  Open(100 * kFrame);
  Play(0, kFrame, kFrame, 4);
  const Bytes before = content_;
  content_ = Noise(content_.size(), 2);
  test::WriteBytes(path_, content_);
  // The window holds 8 kB from the third sample on: those are as they were, whole.
  std::uint64_t next = 4;
  for (; Read(next * kFrame, kFrame) && !IsPartOf(content_, next * kFrame); ++next) {
    EXPECT_TRUE(IsPartOf(before, next * kFrame));
  }
  EXPECT_EQ(next, 8u);
  EXPECT_TRUE(ReadsContent((next - 1) * kFrame, kFrame)) << "again";
  EXPECT_TRUE(ReadsContent(2 * kFrame, kFrame)) << "before";

  // Cut short, it is told by the read that needs the bytes.
  reader_.Forget();
  Play(0, kFrame, kFrame, 4);
  test::WriteBytes(path_, Bytes(content_.begin(), content_.begin() + 9 * kFrame + 50));
  Play(4 * kFrame, kFrame, kFrame, 5);
  EXPECT_FALSE(Read(9 * kFrame, kFrame));
  EXPECT_EQ(error_.kind(), Error::eCutShort);
}

// Reading ahead may fail, find no memory or be interrupted: the reads themselves do not.
TEST_F(Samples, FailuresBeyondWhatIsAskedForAreNone) {
  Open(100 * kFrame);
  std::uint8_t bytes[kFrame];
  bool read = true;
  {
    const test::FailAllocation failure(1);  // of the window, for the third
    for (std::uint64_t i = 0; i < 3; ++i) {
      read = reader_.ReadAt(0, i * kFrame, bytes, kFrame, error_) && read;
    }
  }
  EXPECT_TRUE(read);
  for (const int number : {EIO, EINTR}) {
    reader_.Forget();
    const test::FailSystemCall failure(3, number);
    Play(0, kFrame, kFrame, 3);
    EXPECT_TRUE(failure.Reached());
  }
}

// What is not in memory is read with a second call, and the next one is asked for.
TEST_F(Samples, LargeOnesThatWaitLookAfterTheNext) {
  Open(20 * kLarge);
  Play(0, 3 * kLarge, kLarge, 2);
  const unsigned long before = test::SystemCallCount();
  {
    const test::FailSystemCall notInMemory(1, EAGAIN);
    EXPECT_TRUE(ReadsContent(6 * kLarge, kLarge));
  }
  EXPECT_GE(test::SystemCallCount() - before, 3u);
  EXPECT_TRUE(ReadsContent(9 * kLarge, kLarge));
  EXPECT_GE(test::SystemCallCount() - before, 5u);
}

TEST(ReadForecast, ExpectsTheNextOfEqualSteps) {
  constexpr std::uint64_t kSize = 1'000'000;
  constexpr std::uint64_t kCount = 1000;
  struct Row {
    const char* why;
    std::vector<std::uint64_t> offsets;
    std::uint64_t offset;  // of the forecast
    std::uint64_t count;   // 0: there is none
  };
  const Row rows[] = {
      {"every 4th", {0, 4000, 8000}, 12'000, kCount},
      {"backwards", {9000, 8000, 7000}, 6000, kCount},
      {"steps that are about equal", {0, 40'000, 80'100}, 120'100, kCount + 200},
      {"steps that differ", {0, 4000, 5500}, 0, 0},
      {"one after the other", {50'000, 51'000, 52'000, 53'000}, 0, 0},
      {"the same again", {4000, 4000, 4000}, 0, 0},
      {"at its beginning", {8000, 4000, 0}, 0, 0},
      {"reaching beyond its end", {kSize - 12'500, kSize - 8500, kSize - 4500}, kSize - 500, 500},
      {"beyond all sizes", {0, ~std::uint64_t{0} / 2, ~std::uint64_t{0}}, 0, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    ReadForecast::Range next;
    ReadForecast waiting;
    ReadForecast warm;
    for (const std::uint64_t offset : row.offsets) {
      next = waiting.Note(offset, kCount, true, kSize);
      EXPECT_EQ(warm.Note(offset, kCount, false, kSize).count, 0u);
    }
    EXPECT_EQ(next.count, row.count);
    EXPECT_EQ(next.offset, row.offset);
  }
  // Reads that no longer wait end it after a while.
  ReadForecast forecast;
  unsigned int given = 0;
  for (std::uint64_t i = 0; i < 200; ++i) {
    if (forecast.Note(i * 4000, kCount, i == 10, kSize).count != 0) ++given;
  }
  EXPECT_EQ(given, 32u);
}

}  // namespace
}  // namespace kelsdk::io
