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

  bool Read(std::uint64_t offset, std::size_t count) {
    read_.assign(count, 0);
    return reader_.ReadAt(0, offset, read_.data(), count, error_);
  }
  bool ReadsContent(std::uint64_t offset, std::size_t count) {
    return Read(offset, count) && std::equal(read_.begin(), read_.end(), At(offset));
  }
  Bytes::const_iterator At(std::uint64_t offset) const {
    return content_.begin() + static_cast<std::ptrdiff_t>(offset);
  }

  // System calls of `body`.
  template <typename Body>
  static unsigned long Calls(Body&& body) {
    const unsigned long before = test::SystemCallCount();
    body();
    return test::SystemCallCount() - before;
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
      if (any(3) != 0) {
        ASSERT_TRUE(ReadsContent(offset, count)) << error_.text();
      } else {
        read_.assign(count, 0);
        const std::size_t cut = any(count);
        struct iovec runs[] = {{read_.data(), cut}, {read_.data() + cut, count - cut}};
        ASSERT_TRUE(reader_.ReadScatter(0, offset, runs, 2, error_)) << error_.text();
        ASSERT_TRUE(std::equal(read_.begin(), read_.end(), At(offset)));
      }
      const std::size_t step = count + gap;
      if (backwards && step > offset) break;
      offset = backwards ? offset - step : offset + step;
    }
  }
}

TEST_F(Samples, TakeAtMostACallEachAndNoMemoryButOnce) {
  Open(10'000 * kFrame);
  const auto play = [&](std::size_t count, std::uint64_t first, std::uint64_t step) {
    for (std::size_t i = 0; i < count; ++i) {
      ASSERT_TRUE(ReadsContent(first + i * step, kFrame));
    }
  };
  EXPECT_LT(Calls([&] { play(10'000, 0, kFrame); }), 60u);
  read_.reserve(kLarge);
  const unsigned long allocations = test::AllocationCount();
  // Forward once more, with what others wrote in between, backwards, the same again.
  EXPECT_LT(Calls([&] { play(10'000, 0, kFrame); }), 60u);
  EXPECT_LT(Calls([&] { play(9'000, 0, kFrame + 88); }), 60u);
  EXPECT_EQ(Calls([&] { play(1'000, 1'000 * kFrame, 0 - kFrame); }), 1'000u);
  EXPECT_EQ(Calls([&] { play(100, 0, 0); }), 100u);
  EXPECT_EQ(Calls([&] { play(100, 0, 10 * kFrame); }), 100u);
  // Where the system does not tell what is in memory, that is asked once, and a slow read may pass
  // for one that waited.
  std::uint8_t byte = 0;
  const struct iovec run = {&byte, 1};
  bool tells = true;
  file_.ReadFromMemory(0, &run, 1, &tells);
  for (const std::uint64_t step : {std::uint64_t{kLarge}, std::uint64_t{kLarge} * 4 / 3}) {
    EXPECT_LE(Calls([&] {
                for (std::uint64_t i = 0; i < 80; ++i) ASSERT_TRUE(ReadsContent(i * step, kLarge));
              }),
              tells ? 80u : 161u);
  }
  EXPECT_EQ(test::AllocationCount(), allocations);
}

TEST_F(Samples, AChangedFileShowsAtOnceWhenReadAgainAndWhenAWindowEnds) {
  Open(100 * kFrame);
  for (std::uint64_t i = 0; i < 4; ++i) ASSERT_TRUE(ReadsContent(i * kFrame, kFrame));
  const Bytes before = content_;
  content_ = Noise(content_.size(), 2);
  test::WriteBytes(path_, content_);
  // The window holds 8 kB from the third sample on: those are as they were, whole.
  std::uint64_t next = 4;
  for (; Read(next * kFrame, kFrame) && !std::equal(read_.begin(), read_.end(), At(next * kFrame));
       ++next) {
    EXPECT_TRUE(std::equal(read_.begin(), read_.end(),
                           before.begin() + static_cast<std::ptrdiff_t>(next * kFrame)));
  }
  EXPECT_EQ(next, 8u);
  EXPECT_TRUE(ReadsContent((next - 1) * kFrame, kFrame));  // again
  EXPECT_TRUE(ReadsContent(2 * kFrame, kFrame));           // before
}

TEST_F(Samples, AFileCutShortIsToldByTheReadThatNeedsTheBytes) {
  Open(100 * kFrame);
  for (std::uint64_t i = 0; i < 4; ++i) ASSERT_TRUE(ReadsContent(i * kFrame, kFrame));
  test::WriteBytes(path_, Bytes(content_.begin(), content_.begin() + 9 * kFrame + 50));
  for (std::uint64_t i = 4; i < 9; ++i) {
    EXPECT_TRUE(Read(i * kFrame, kFrame)) << i << ": " << error_.text();
  }
  EXPECT_FALSE(Read(9 * kFrame, kFrame));
  EXPECT_EQ(error_.kind(), Error::eCutShort);
}

// Reading ahead may fail, find no memory or be interrupted: the reads themselves do not.
TEST_F(Samples, FailuresBeyondWhatIsAskedForAreNone) {
  Open(100 * kFrame);
  const auto playThree = [&] {
    reader_.Forget();
    for (std::uint64_t i = 0; i < 3; ++i) EXPECT_TRUE(ReadsContent(i * kFrame, kFrame));
  };
  for (const int number : {EIO, EINTR}) {
    const test::FailSystemCall failure(3, number);
    playThree();
    EXPECT_TRUE(failure.Reached());
  }
  SampleReader fresh(file_);
  std::uint8_t bytes[kFrame];
  bool read = true;
  {
    const test::FailAllocation failure(1);  // of the window, for the third
    for (std::uint64_t i = 0; i < 3; ++i) {
      read = fresh.ReadAt(0, i * kFrame, bytes, kFrame, error_) && read;
    }
  }
  EXPECT_TRUE(read);
}

// What is not in memory is read with a second call, and the next one is asked for; where that is
// not in memory either, or the system does not tell, it is announced.
TEST_F(Samples, LargeOnesThatWaitLookAfterTheNext) {
  Open(20 * kLarge);
  for (std::uint64_t i = 0; i < 2; ++i) ASSERT_TRUE(ReadsContent(i * 3 * kLarge, kLarge));
  EXPECT_GE(Calls([&] {
              const test::FailSystemCall notInMemory(1, EAGAIN);
              EXPECT_TRUE(ReadsContent(6 * kLarge, kLarge));
            }),
            3u);
  EXPECT_GE(Calls([&] { EXPECT_TRUE(ReadsContent(9 * kLarge, kLarge)); }), 2u);
  // After a read of another kind none is expected.
  EXPECT_EQ(Calls([&] { EXPECT_TRUE(ReadsContent(kLarge, kLarge)); }), 1u);
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
      {"only two", {50'000, 54'000}, 0, 0},
      {"one after the other", {50'000, 51'000, 52'000, 53'000}, 0, 0},
      {"the same again", {4000, 4000, 4000}, 0, 0},
      {"at the end of the file", {kSize - 9000, kSize - 5000, kSize - 1000}, 0, 0},
      {"at its beginning", {8000, 4000, 0}, 0, 0},
      {"half beyond its end", {kSize - 8500, kSize - 4500, kSize - 500}, 0, 0},
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
