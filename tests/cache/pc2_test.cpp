#include <cstring>
#include <limits>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

class CachePC2 : public CacheTest {
 protected:
  void SetUp() override {
    CacheTest::SetUp();
    WritePC2("a.pc2", 4);
    OpenForRead(KelCache::ePC2Format, "a.pc2");
  }

  double values_[15] = {42};
};

TEST_F(CachePC2, ReadsSamplesByNumber) {
  EXPECT_EQ(cache_->GetPointCount(nullptr), 12u) << "values, not points";
  EXPECT_EQ(cache_->GetSampleCount(nullptr), 3u);
  EXPECT_EQ(cache_->GetFrameStartOffset(nullptr), 1.5);
  EXPECT_EQ(Outcome(cache_->Read(3, values_, 4, &status_)), "1 Error reading sample data");
  EXPECT_EQ(values_[0], 42);
  EXPECT_EQ(Outcome(cache_->Read(0, nullptr, 4, &status_)), "3 ");
  EXPECT_EQ(Outcome(cache_->Read(0, values_, kWrapping, &status_)), "3 ");
  {
    const FailAllocation failure(1, EAllocations::eKelMalloc);
    EXPECT_FALSE(cache_->Read(0, values_, 5, &status_));
    EXPECT_EQ(status_.GetCode(), KelStatus::eFailure);
  }
  values_[14] = 42;
  EXPECT_TRUE(cache_->Read(2, values_, 5, nullptr));
  EXPECT_EQ(values_[11], 211);
  EXPECT_EQ(values_[12], 0) << "points that the file does not have are zero";
  EXPECT_EQ(values_[14], 0);
  const unsigned long allocations = AllocationCount();
  for (const unsigned int points : {4u, 0u, 5u, 1u}) {
    EXPECT_TRUE(cache_->Read(1, values_, points, nullptr));
  }
  EXPECT_EQ(AllocationCount(), allocations) << "the scratch buffer only grows";
}

TEST_F(CachePC2, WritesSamplesOfTheDeclaredSize) {
  cache_->CloseFile(nullptr);
  ASSERT_TRUE(cache_->OpenFileForWrite(-5, 24, 2, 1, nullptr));
  double point[3] = {0.1, 1e-60, -2};
  EXPECT_TRUE(cache_->Write(1, point, nullptr));
  EXPECT_EQ(Outcome(cache_->Write(4294967295u, point, &status_)), "1 Error writing sample data");
  cache_->CloseFile(nullptr);
  ASSERT_TRUE(cache_->OpenFileForRead(nullptr));
  EXPECT_EQ(cache_->GetFrameStartOffset(nullptr), -5);
  EXPECT_EQ(cache_->GetSamplingFrameRate(nullptr), 1);
  EXPECT_TRUE(cache_->Read(1, values_, 1, nullptr));
  EXPECT_TRUE(values_[0] == double(0.1F) && values_[1] == 0 && values_[2] == -2);
}

TEST_F(CachePC2, TimePerFrameOfAnyRate) {
  const struct {
    float rate;
    long long perFrame;
  } rows[] = {{29.97F, 1592626137},
              {0.5F, 0},
              {-1, -46186158000},
              {1e30F, 0},
              {std::numeric_limits<float>::quiet_NaN(), 0},
              {std::numeric_limits<float>::infinity(), 0}};
  Bytes bytes = ReadBytes(folder_.File("a.pc2"));
  for (const auto& row : rows) {
    cache_->CloseFile(nullptr);
    std::memcpy(&bytes[24], &row.rate, sizeof row.rate);
    WriteBytes(folder_.File("a.pc2"), bytes);
    ASSERT_TRUE(cache_->OpenFileForRead(nullptr));
    EXPECT_EQ(cache_->GetCacheTimePerFrame(&status_).Get(), row.perFrame) << row.rate;
    EXPECT_EQ(Status(), "");
  }
}

}  // namespace
}  // namespace kelsdk::test
