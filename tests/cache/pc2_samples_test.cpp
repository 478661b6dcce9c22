#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

class PC2Samples : public StandInTest {
 protected:
  std::string Outcome(int operation) {
    Soil();
    bool done = false;
    switch (operation) {
      case 0: done = cache_->Read(1, values_, 4, &status_); break;
      case 1: done = cache_->Write(1, values_, &status_); break;
      case 2: done = cache_->GetPointCount(&status_) != 0; break;
      case 3: done = cache_->GetSampleCount(&status_) != 0; break;
      default: done = cache_->GetFrameStartOffset(&status_) != 0.0; break;
    }
    return std::to_string(done) + " " + std::to_string(status_.GetCode()) + " " +
           status_.GetErrorString();
  }

  double values_[15] = {0.1};
};

TEST_F(PC2Samples, TheThreeChecks) {
  TheRecorder().startFrame = 1.5F;
  for (int operation = 0; operation <= 4; ++operation) {
    SCOPED_TRACE(operation);
    const bool writes = operation == 1;
    const std::string failed = "0 1 ";
    cache_->SetCacheFileFormat(KelCache::eNCFormat, nullptr);
    EXPECT_EQ(Outcome(operation), failed + kInvalidFormatText);
    cache_->SetCacheFileFormat(KelCache::ePC2Format, nullptr);
    EXPECT_EQ(Outcome(operation), failed + kNotOpenedText);
    Open(KelCache::ePC2Format);
    EXPECT_EQ(Outcome(operation), writes ? failed + kInvalidFlagText : "1 0 ");
    cache_->CloseFile(nullptr);
    Open(KelCache::ePC2Format, true);
    EXPECT_EQ(Outcome(operation), writes ? "1 0 " : failed + kInvalidFlagText);
    cache_->CloseFile(nullptr);
  }
}

TEST_F(PC2Samples, ValuesAndHeader) {
  TheRecorder().startFrame = 1.5F;
  Open(KelCache::ePC2Format);
  EXPECT_EQ(cache_->GetPointCount(nullptr), 12U) << "values, not points";
  EXPECT_EQ(cache_->GetSampleCount(nullptr), 3U);
  EXPECT_EQ(cache_->GetFrameStartOffset(nullptr), 1.5);
  TheRecorder().firstValue = 1;
  EXPECT_TRUE(cache_->Read(77, values_, 5, nullptr));
  EXPECT_EQ(values_[11], 12.0);
  EXPECT_EQ(values_[12], 0.0) << "points that the file does not have are zero";
  EXPECT_EQ(values_[14], 0.0);
  EXPECT_EQ(TheRecorder().Take(), "pc2.readSample(77, 5)");
  cache_->CloseFile(nullptr);

  Open(KelCache::ePC2Format, true);
  values_[0] = 0.1;
  EXPECT_TRUE(cache_->Write(4294967295U, values_, nullptr));
  EXPECT_EQ(TheRecorder().written[0], double(0.1F));
  EXPECT_EQ(TheRecorder().written.size(), 12U);
  EXPECT_EQ(TheRecorder().Take(), "pc2.writeSample(-1)");
}

TEST_F(PC2Samples, Failures) {
  cache_->SetCacheFileFormat(KelCache::eNCFormat, nullptr);
  EXPECT_FALSE(cache_->Write(0, nullptr, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
  Open(KelCache::ePC2Format);
  TheRecorder().refused = {"pc2.readSample", "pc2.writeSample"};
  values_[0] = 42;
  EXPECT_FALSE(cache_->Read(0, values_, 4, &status_));
  ExpectStatus(KelStatus::eFailure, "Error reading sample data");
  EXPECT_EQ(values_[0], 42);
  EXPECT_FALSE(cache_->Read(0, nullptr, 4, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
  TheRecorder().Take();
  EXPECT_FALSE(cache_->Read(0, values_, 0x15555556, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
  EXPECT_EQ(TheRecorder().Take(), "");
  EXPECT_EQ(CacheFields::State(cache_)->pc2BufferCount, 12U);
  cache_->CloseFile(nullptr);
  Open(KelCache::ePC2Format, true);
  EXPECT_FALSE(cache_->Write(0, values_, &status_));
  ExpectStatus(KelStatus::eFailure, "Error writing sample data");
}

TEST_F(PC2Samples, TheScratchBufferOnlyGrows) {
  Open(KelCache::ePC2Format);
  const KelCache_internal* state = CacheFields::State(cache_);
  EXPECT_TRUE(cache_->Read(0, values_, 4, nullptr));
  EXPECT_EQ(state->pc2BufferCount, 12U);
  const float* scratch = state->pc2Buffer;
  const long blocks = OutstandingBlocks();
  EXPECT_TRUE(cache_->Read(1, values_, 4, nullptr));
  EXPECT_TRUE(cache_->Read(1, values_, 1, nullptr));
  EXPECT_TRUE(cache_->Read(1, values_, 0, nullptr));
  EXPECT_EQ(state->pc2Buffer, scratch);
  EXPECT_EQ(state->pc2BufferCount, 12U);
  EXPECT_EQ(OutstandingBlocks(), blocks);
  {
    FailAllocation failure(1, EAllocations::eKelMalloc);
    EXPECT_FALSE(cache_->Read(0, values_, 5, &status_));
    ExpectStatus(KelStatus::eFailure);
    EXPECT_EQ(state->pc2BufferCount, 0U) << "claims no room that it has not";
  }
  EXPECT_TRUE(cache_->Read(0, values_, 5, nullptr));
  EXPECT_EQ(state->pc2BufferCount, 15U);
  cache_->CloseFile(nullptr);
  EXPECT_EQ(state->pc2BufferCount, 15U);
}

}  // namespace
}  // namespace kelsdk::test
