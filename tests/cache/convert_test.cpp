#include <limits>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

class CacheConversion : public CacheTest {
 protected:
  void SetUp() override {
    CacheTest::SetUp();
    WritePC2("shot.pc2", 4);
    pc2_ = ReadBytes(folder_.File("shot.pc2"));
  }
  bool ToNC(double rate = 24, KelCache::ENCFileCount files = KelCache::eNCSingleFile,
            KelCache::ENCBinaryFormat data = KelCache::eNCBinaryX) {
    return cache_->ConvertFromPC2ToNC(files, rate, data, &status_);
  }
  bool ToPC2(double rate = 24, unsigned int channel = 0) {
    return cache_->ConvertFromNCToPC2(rate, channel, &status_);
  }

  Bytes pc2_;
};

TEST_F(CacheConversion, ThereAndBackIsTheSameFile) {
  const struct {
    double rate, stored;
    int files, data, dataFiles;
  } rows[] = {{24, 24, 0, 0, 1}, {29.97, 30, 1, 1, 3}, {23.976, 24, 2, 7, 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rate);
    object_->Name(KelCache::ePC2Format, folder_.File("shot.pc2"));
    EXPECT_EQ(Outcome(ToNC(row.rate, KelCache::ENCFileCount(row.files),
                           KelCache::ENCBinaryFormat(row.data))),
              "done");
    EXPECT_EQ(Exists(folder_.File("shot.ncc")), row.data == 0);
    object_->Name(KelCache::eNCFormat, folder_.File("shot.xml"));
    ASSERT_TRUE(cache_->OpenFileForRead(nullptr));
    EXPECT_EQ(cache_->GetSamplingFrameRate(nullptr), row.stored);
    EXPECT_EQ(cache_->GetCacheDataFileCount(nullptr), row.dataFiles);
    cache_->CloseFile(nullptr);
    WriteBytes(folder_.File("shot.pc2"), {0});
    EXPECT_TRUE(ToPC2(row.rate)) << Status();
    EXPECT_EQ(ReadBytes(folder_.File("shot.pc2")), pc2_);
  }
}

TEST_F(CacheConversion, WhatIsRefused) {
  const std::string here = folder_.path() + "/";
  for (const double rate : {0.0, -24.0, 1e-17, 1e-6, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(Outcome(ToNC(rate)), "1 Invalid sampling rate");
    EXPECT_EQ(Outcome(ToPC2(rate)), "1 Invalid sampling rate");
  }
  for (const auto format : {KelCache::eUnknownFormat, KelCache::eAlembicFormat, kOtherFormat}) {
    object_->Name(format, here + "shot.pc2");
    EXPECT_FALSE(ToNC());
    EXPECT_FALSE(ToPC2());
    EXPECT_EQ(Status(), "untouched") << "by another format";
  }
  object_->Name(KelCache::ePC2Format, here + "shot.pc2");
  EXPECT_EQ(Outcome(ToPC2()), "untouched");
  EXPECT_EQ(Outcome(ToNC(10000)), "1 Conversion from PC2 to NC failed") << "0 ticks per frame";
  EXPECT_TRUE(ToNC());
  object_->Name(KelCache::eNCFormat, here + "shot.xml");
  Status();
  EXPECT_EQ(Outcome(ToNC()), "untouched");
  EXPECT_EQ(Outcome(ToPC2(24, 1)), "1 Conversion from NC to PC2 failed");

  object_->Name(KelCache::ePC2Format, "C:\\no\\x.pc2", "/rel/y.any");
  EXPECT_EQ(Outcome(ToNC()), "1 Cache file not found: C:/no/x.pc2, /rel/y.pc2");
  object_->Name(KelCache::eNCFormat, "/no/x.xml", "/rel/y.any");
  EXPECT_EQ(Outcome(ToPC2()), "1 Cache file not found: /no/x.xml, /rel/y.xml");
}

// The target's name is the source's as it stands, its last three characters replaced.
TEST_F(CacheConversion, WhereTheTargetAppears) {
  const std::string here = folder_.path() + "/";
  WriteBytes(here + "other.any", pc2_);
  WriteBytes(here + "other.pc2", {0});
  object_->Name(KelCache::ePC2Format, "C:\\no\\x.pc2", here + "a\\..\\other.any");
  EXPECT_TRUE(ToNC()) << "other.pc2 is looked for, other.any is read: " << Status();
  const char* const names[][2] = {{"other.XML", "other.pc2"}, {"other.cache", "other.capc2"}};
  for (const auto& [source, target] : names) {
    WriteBytes(here + source, {0});
    object_->Name(KelCache::eNCFormat, here + source);
    EXPECT_TRUE(ToPC2()) << Status();
    EXPECT_EQ(ReadBytes(here + target), pc2_);
  }
}

TEST_F(CacheConversion, WithoutMemoryTheTargetIsWholeOrAbsent) {
  object_->Name(KelCache::ePC2Format, folder_.File("shot.pc2"));
  const auto names = NamesIn(folder_.path());
  const auto kelMalloc = EAllocations::eKelMalloc;
  EXPECT_GE(FailEachAllocation(
                [&] {
                  const bool done = ToNC();
                  EXPECT_EQ(NamesIn(folder_.path()) != names, done);
                },
                kelMalloc),
            3u);
  object_->Name(KelCache::eNCFormat, folder_.File("shot.xml"));
  WriteBytes(folder_.File("shot.pc2"), {0});
  EXPECT_GE(FailEachAllocation(
                [&] {
                  const bool done = ToPC2();
                  EXPECT_EQ(ReadBytes(folder_.File("shot.pc2")), done ? pc2_ : Bytes{0});
                },
                kelMalloc),
            3u);
}

}  // namespace
}  // namespace kelsdk::test
