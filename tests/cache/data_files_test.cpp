#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

using DataFiles = StandInTest;

TEST_F(DataFiles, CountsAndNames) {
  KelString relative("kept");
  KelString absolute("kept");
  Soil();
  EXPECT_EQ(cache_->GetCacheDataFileCount(&status_), 0);
  ExpectClear();
  EXPECT_FALSE(cache_->GetCacheDataFileName(0, relative, absolute, &status_));
  ExpectStatus(KelStatus::eFailure, kInvalidFormatText);
  cache_->SetCacheFileFormat(KelCache::eNCFormat, nullptr);
  EXPECT_EQ(cache_->GetCacheDataFileCount(&status_), 0);
  ExpectClear();
  EXPECT_FALSE(cache_->GetCacheDataFileName(-1, relative, absolute, &status_));
  ExpectStatus(KelStatus::eFailure, "The cache file can not be opened");

  Open(KelCache::eNCFormat);
  cache_->SetCacheFileName("caches\\shot1\\body.xml", "unused", nullptr);
  EXPECT_EQ(cache_->GetCacheDataFileCount(nullptr), 1);
  for (const int index : {-1, 1}) {
    EXPECT_FALSE(cache_->GetCacheDataFileName(index, relative, absolute, &status_));
    ExpectStatus(KelStatus::eFailure, "The file index is invalid");
  }
  TheRecorder().refused = {"nc.getDataFilePath"};
  EXPECT_FALSE(cache_->GetCacheDataFileName(0, relative, absolute, &status_));
  ExpectStatus(KelStatus::eFailure, "Failed to get the cache file's name");
  EXPECT_STREQ(relative, "kept");
  EXPECT_STREQ(absolute, "kept");
  TheRecorder().refused = {};
  EXPECT_TRUE(cache_->GetCacheDataFileName(0, relative, absolute, &status_));
  ExpectClear();
  EXPECT_STREQ(absolute, "C:/proj/caches/bodyFrame3.ncc");
  EXPECT_STREQ(relative, "caches/shot1/bodyFrame3.ncc");
  EXPECT_EQ(TheRecorder().Take(), "nc.getDataFilePath(1); nc.getDataFilePath(1)");

  for (const unsigned int files : {0U, 1U}) {
    TheRecorder().fileCount = files;
    EXPECT_EQ(cache_->GetCacheDataFileCount(nullptr), 0);
  }
  TheRecorder().fileCount = 2;
  FailEachAllocation(
      [&] {
        KelString name;
        cache_->GetCacheDataFileName(0, name, name, &status_);
      },
      EAllocations::eKelMalloc);
}

}  // namespace
}  // namespace kelsdk::test
