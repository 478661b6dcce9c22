// Memory and the disk made to fail at every point, and what a fetch costs when nothing fails.
#include <cerrno>

#include "backends/zuPointCache2IO.h"
#include "tests/pc2/pc2_cache.h"

namespace kelsdk::test {
namespace {

class PC2Faults : public FileTest {
 protected:
  void SetUp() override { WriteBytes(path_, MakePC2(2, 3, 72)); }

  std::string path_ = folder_.File("shot.pc2");
};

TEST_F(PC2Faults, ADiskThatFillsUpKeepsTheOlderFileAndTheSamplesSoFar) {
  const Bytes older = ReadBytes(path_);
  {
    PC2Object cache(path_);
    KelStatus status;
    double values[6] = {9, 9, 9, 9, 9, 9};
    ASSERT_TRUE(cache->OpenFileForWrite(0, 24, 3, 2, nullptr));
    EXPECT_TRUE(cache->Write(0U, values, &status));
    {
      FailSystemCall full(1, ENOSPC, true);
      EXPECT_FALSE(cache->Write(1U, values, &status));
      EXPECT_STREQ(status.GetErrorString(), "Error writing sample data");
    }
    EXPECT_TRUE(cache->CloseFile(&status));
  }
  EXPECT_EQ(ReadBytes(path_), older) << "a file with a hole replaces nothing";
  unsigned int saved = 0;
  EXPECT_TRUE(zuPointCache2IO::recover(path_.c_str(), saved, nullptr, nullptr));
  EXPECT_EQ(saved, 1U);
}

TEST_F(PC2Faults, AFetchAllocatesNothingAndMakesOneSystemCall) {
  PC2Object cache(path_);
  ASSERT_TRUE(cache->OpenFileForRead(nullptr));
  float* values = nullptr;
  unsigned int length = 0;
  double doubles[6];
  ASSERT_TRUE(cache->Read(&values, length, FrameTime(0), 0));
  ASSERT_TRUE(cache->Read(0, doubles, 2, nullptr));
  const unsigned long allocations = AllocationCount();
  const unsigned long calls = SystemCallCount();
  for (int round = 0; round < 100; ++round) {
    EXPECT_TRUE(cache->Read(&values, length, FrameTime(round % 3), 0));
    EXPECT_TRUE(cache->Read(static_cast<unsigned int>(round % 3), doubles, 2, nullptr));
  }
  EXPECT_EQ(AllocationCount(), allocations);
  EXPECT_EQ(SystemCallCount(), calls + 200);
}

TEST_F(PC2Faults, AWriteAllocatesNothingAndMakesOneSystemCall) {
  PC2Object cache(path_);
  ASSERT_TRUE(cache->OpenFileForWrite(0, 24, 100, 2, nullptr));
  double values[6] = {};
  const unsigned long allocations = AllocationCount();
  const unsigned long calls = SystemCallCount();
  for (unsigned int sample = 0; sample < 100; ++sample) {
    EXPECT_TRUE(cache->Write(sample, values, nullptr));
  }
  EXPECT_EQ(AllocationCount(), allocations);
  EXPECT_EQ(SystemCallCount(), calls + 100);
  cache->CloseFile(nullptr);
}

}  // namespace
}  // namespace kelsdk::test
