#include "backends/alembic/block_cache.h"

#include <cstring>
#include <random>

#include "tests/support/fixture.h"

namespace kelsdk::test {
namespace {

using alembic::BlockCache;
using AlembicBlockCache = FileTest;

TEST_F(AlembicBlockCache, ReadsASmallFileOnceAndALargeOneInGrowingBlocks) {
  std::mt19937 random(7);
  for (const std::size_t size : {BlockCache::kMostHeld, 6 * BlockCache::kMostHeld + 3}) {
    Bytes bytes(size);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    WriteBytes(folder_.File("bytes"), bytes);
    io::Error error;
    io::InputFile file;
    ASSERT_TRUE(file.Open(folder_.File("bytes").c_str(), error));
    BlockCache cache(file);
    cache.Start();
    Bytes got(200'000);
    const auto readsRight = [&](std::size_t offset, std::size_t count) {
      return cache.Read(offset, got.data(), count, error) &&
             std::memcmp(got.data(), &bytes[offset], count) == 0;
    };
    const unsigned long calls = SystemCallCount();
    for (std::size_t i = 0; i + 100 < size; i += 1000) ASSERT_TRUE(readsRight(i, 100));
    EXPECT_LE(SystemCallCount() - calls, size == BlockCache::kMostHeld ? 1u : 30u);
    for (int i = 0; i < 20'000; ++i) {
      if (i == 10'000) cache.Shrink();
      const std::size_t count = 1 + random() % (i % 100 == 0 ? got.size() : 100);
      // Now anywhere, now at the end.
      const std::size_t offset = i % 3 == 0 ? size - count : random() % (size - count);
      ASSERT_TRUE(readsRight(offset, count)) << offset << " " << count << " " << error.text();
    }
  }
}

}  // namespace
}  // namespace kelsdk::test
