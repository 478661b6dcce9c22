#include "backends/alembic/block_cache.h"

#include <cstring>
#include <random>

#include "tests/support/fixture.h"

namespace kelsdk::test {
namespace {

using alembic::BlockCache;

class AlembicBlockCache : public FileTest {
 protected:
  // A file of `size` bytes that differ from place to place.
  void Make(std::size_t size) {
    bytes_.resize(size);
    std::mt19937 random(7);
    for (auto& byte : bytes_) byte = static_cast<std::uint8_t>(random());
    WriteBytes(folder_.File("bytes"), bytes_);
    ASSERT_TRUE(file_.Open(folder_.File("bytes").c_str(), error_));
    cache_.Start();
  }
  void TearDown() override {
    file_.Close();
    FileTest::TearDown();
  }
  bool ReadsRight(std::size_t offset, std::size_t count) {
    got_.resize(std::max(got_.size(), count));
    return cache_.Read(offset, got_.data(), count, error_) &&
           std::memcmp(got_.data(), &bytes_[offset], count) == 0;
  }

  Bytes bytes_;
  Bytes got_;
  io::Error error_;
  io::InputFile file_;
  BlockCache cache_{file_};
};

TEST_F(AlembicBlockCache, ReadsWhatTheFileHolds) {
  Make(5'000'003);
  std::mt19937 random(1);
  for (int i = 0; i < 20'000; ++i) {
    if (i == 10'000) cache_.Shrink();
    const std::size_t count = 1 + random() % (i % 100 == 0 ? 200'000 : 100);
    // Now anywhere, now a little further on, now at the end.
    const std::size_t anywhere = random() % (bytes_.size() - count);
    const std::size_t onward = (static_cast<std::size_t>(i) * 300) % (bytes_.size() - count);
    const std::size_t offset = i % 3 == 0 ? anywhere : i % 3 == 1 ? onward : bytes_.size() - count;
    ASSERT_TRUE(ReadsRight(offset, count)) << offset << " " << count << " " << error_.text();
  }
}

TEST_F(AlembicBlockCache, ReadsASmallFileOnceAndALargeOneInGrowingBlocks) {
  Make(BlockCache::kMostHeld);
  unsigned long calls = SystemCallCount();
  for (std::size_t i = 0; i + 100 < bytes_.size(); i += 1000) ASSERT_TRUE(ReadsRight(i, 100));
  EXPECT_EQ(SystemCallCount() - calls, 1u);
  Make(6 * BlockCache::kMostHeld);
  calls = SystemCallCount();
  for (std::size_t i = 0; i + 100 < bytes_.size(); i += 1000) ASSERT_TRUE(ReadsRight(i, 100));
  EXPECT_LE(SystemCallCount() - calls, 30u);
}

}  // namespace
}  // namespace kelsdk::test
