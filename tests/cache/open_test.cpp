#include <limits>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr auto kUnknown = static_cast<KelCache::EFileFormat>(5);

class Opening : public StandInTest {
 protected:
  bool OpenAt(KelCache::EFileFormat format, KelCache::EOpenFlag flag, double rate) {
    cache_->SetCacheFileFormat(format, nullptr);
    return cache_->OpenFile(flag, KelCache::eNCSingleFile, rate, nullptr, nullptr, 3, 4, 10.25,
                            &status_, KelCache::eNCFloatVectorArray, KelCache::eNCBinaryX);
  }
};

// Every way in which an open fails: code, message, and nothing left behind.
TEST_F(Opening, FailuresLeaveNothingBehind) {
  const std::string here = folder_.path() + "/";
  const auto read = KelCache::eOpenForRead;
  const auto write = KelCache::eOpenForWrite;
  const std::string created = "Cache file could not be created: " + here + "shot";
  const struct {
    KelCache::EFileFormat format;
    KelCache::EOpenFlag flag;
    double rate;
    const char* refused;
    std::string message;
    std::string calls;
  } cases[] = {
      {KelCache::eUnknownFormat, read, 1, "", kInvalidFormatText, ""},
      {KelCache::ePC2Format, read, 0, "", "Invalid sampling rate", ""},
      {KelCache::eNCFormat, write, -24, "", "Invalid sampling rate", ""},
      {KelCache::eAlembicFormat, write, 1e-16, "", "Invalid sampling rate", ""},
      {KelCache::eAlembicFormat, read, kNaN, "", "Invalid sampling rate", ""},
      {KelCache::eNCFormat, write, 1e-7, "", "Invalid sampling rate", ""},
      {kUnknown, write, -1, "", "Invalid sampling rate", ""},
      {KelCache::ePC2Format, read, 1, "pc2.initialize", "",
       "pc2.new(); pc2.initialize(" + here + "shot.pc2, 0); pc2.delete()"},
      {KelCache::ePC2Format, write, 1, "pc2.initialize", created,
       "pc2.new(); pc2.initialize(" + here + "shot.pc2, 1); pc2.delete()"},
      {KelCache::ePC2Format, write, 1, "pc2.beginWriteData", created,
       "pc2.new(); pc2.initialize(" + here +
           "shot.pc2, 1); pc2.beginWriteData(4, 3, 10.25, 1); pc2.delete()"},
      {KelCache::eNCFormat, read, 1, "nc.initFileRead", "",
       "nc.new(); nc.initFileRead(shot, " + here + "); nc.delete()"},
      {KelCache::eNCFormat, write, 24, "nc.initFileWrite", created,
       "nc.new(); nc.initFileWrite(" + here + ", shot, 0, ncx, 250); nc.delete()"},
      {KelCache::eNCFormat, write, 24, "nc.addChannel", created,
       "nc.new(); nc.initFileWrite(" + here +
           ", shot, 0, ncx, 250); nc.addChannel(shot, Points, 6); nc.delete()"},
      {KelCache::eAlembicFormat, write, 1, "", "Alembic Cache file write is not supported", ""},
      {KelCache::eAlembicFormat, read, 1, "abc.Open", "",
       "abc.new(1); abc.Open(" + here + "shot.pc2, 1); abc.delete()"},
      {kUnknown, write, 1, "", "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message + "|" + c.refused + "|" + std::to_string(c.rate));
    TheRecorder() = {};
    TheRecorder().refused = {c.refused};
    Soil();
    EXPECT_FALSE(OpenAt(c.format, c.flag, c.rate));
    ExpectStatus(c.message.empty() ? KelStatus::eSuccess : KelStatus::eFailure, c.message);
    EXPECT_EQ(TheRecorder().Take(), c.calls);
    EXPECT_EQ(CacheFields::State(cache_)->openFlag, KelCache::eOpenForRead);
    EXPECT_EQ(CacheFields::State(cache_)->pc2Buffer, nullptr);
    EXPECT_FALSE(cache_->IsOpen(&status_));
    ExpectStatus(KelStatus::eFailure, kInvalidFormatText);
  }
}

TEST_F(Opening, VersionOtherThanOneIsRefused) {
  TheRecorder().version = 2;
  EXPECT_FALSE(OpenAt(KelCache::ePC2Format, KelCache::eOpenForRead, 1));
  ExpectStatus(KelStatus::eFailure, "Unsupported file version");
  EXPECT_EQ(CacheFields::State(cache_)->pc2Cache, nullptr);
}

TEST_F(Opening, WhatTheBackEndsAreGiven) {
  const std::string here = folder_.path() + "/";
  Soil();
  EXPECT_TRUE(OpenAt(KelCache::ePC2Format, KelCache::eOpenForRead, 1));
  ExpectClear();
  cache_->CloseFile(nullptr);
  EXPECT_TRUE(OpenAt(KelCache::ePC2Format, KelCache::eOpenForWrite, 24));
  EXPECT_EQ(CacheFields::State(cache_)->pc2BufferCount, 12U);
  cache_->CloseFile(nullptr);
  EXPECT_EQ(TheRecorder().Take(), "pc2.new(); pc2.initialize(" + here +
                                      "shot.pc2, 0); pc2.delete(); pc2.new(); "
                                      "pc2.initialize(" +
                                      here +
                                      "shot.pc2, 1); pc2.beginWriteData(4, 3, 10.25, 1); "
                                      "pc2.endWriteData(); pc2.delete()");
  EXPECT_TRUE(cache_->OpenFileForRead(nullptr));
  EXPECT_EQ(CacheFields::State(cache_)->pc2Buffer, nullptr);
  EXPECT_EQ(CacheFields::State(cache_)->pc2BufferCount, 0U);
  cache_->CloseFile(nullptr);
  TheRecorder().Take();

  EXPECT_TRUE(OpenAt(KelCache::eNCFormat, KelCache::eOpenForRead, 1));
  cache_->CloseFile(nullptr);
  EXPECT_EQ(TheRecorder().Take(), "nc.new(); nc.initFileRead(shot, " + here +
                                      "); nc.setOptimizeMultiChannelRead(1); nc.delete()");
  EXPECT_TRUE(OpenAt(KelCache::eAlembicFormat, KelCache::eOpenForRead, 1));
  cache_->CloseFile(nullptr);
  EXPECT_EQ(TheRecorder().Take(), "abc.new(1); abc.Open(" + here + "shot.pc2, 1); abc.delete()");
}

TEST_F(Opening, NCWriteArguments) {
  const struct {
    int fileCount;
    double rate;
    int binaryFormat;
    const char* expected;
  } cases[] = {{1, 24, 0, "1, ncc, 250"},    {0, 30, 1, "0, ncx, 200"},
               {2, 29.97, 7, "0, ncx, 200"}, {0, 25, 1, "0, ncx, 240"},
               {1, 10000, 0, "1, ncc, 0"},   {0, 1.0 / 300000, 1, "0, ncx, 1800000000"}};
  cache_->SetCacheFileFormat(KelCache::eNCFormat, nullptr);
  for (const auto& c : cases) {
    EXPECT_TRUE(cache_->OpenFileForWrite(static_cast<KelCache::ENCFileCount>(c.fileCount), c.rate,
                                         "vel",
                                         static_cast<KelCache::ENCBinaryFormat>(c.binaryFormat),
                                         KelCache::eNCDouble, "Velocity", nullptr));
    EXPECT_EQ(TheRecorder().Take(), "nc.new(); nc.initFileWrite(" + folder_.path() + "/, shot, " +
                                        c.expected + "); nc.addChannel(vel, Velocity, 1)");
    cache_->CloseFile(nullptr);
    EXPECT_EQ(TheRecorder().Take(), "nc.endFileWrite(); nc.delete()");
  }
}

TEST_F(Opening, AlreadyOpenOnlyComparesFlags) {
  Open(KelCache::ePC2Format, true);
  EXPECT_TRUE(OpenAt(KelCache::ePC2Format, KelCache::eOpenForWrite, kNaN));
  Soil();
  EXPECT_FALSE(cache_->OpenFileForRead(&status_));
  ExpectClear();
  EXPECT_TRUE(cache_->IsOpen(&status_));
  EXPECT_EQ(TheRecorder().Take(), "");
  // Another format's file opens beside it, and each is reached through its format.
  Open(KelCache::eNCFormat);
  cache_->SetCacheFileFormat(KelCache::ePC2Format, nullptr);
  EXPECT_TRUE(cache_->IsOpen(nullptr));
}

TEST_F(Opening, NamesAreLookedForByThePathRules) {
  const std::string here = folder_.path() + "/";
  std::string back = here + "shot.xyz";
  for (char& c : back) {
    if (c == '/') c = '\\';
  }
  struct {
    std::string relative, absolute, opened;
  } const cases[] = {
      {"none", back, here + "shot.xyz"},                         // slashes turned, extension kept
      {here + "shot.pc2", "/nowhere/x.pc2", here + "shot.pc2"},  // fallback to the relative name
      {here + "sub/../shot.any", "", here + "shot.any"},
  };
  for (const auto& c : cases) {
    cache_->SetCacheFileName(c.relative.c_str(), c.absolute.c_str(), nullptr);
    EXPECT_TRUE(OpenAt(KelCache::ePC2Format, KelCache::eOpenForRead, 1)) << c.relative;
    EXPECT_EQ(TheRecorder().Take(), "pc2.new(); pc2.initialize(" + c.opened + ", 0)");
    cache_->CloseFile(nullptr);
    TheRecorder().Take();
    KelString relative;
    KelString absolute;
    cache_->GetCacheFileName(relative, absolute);
    EXPECT_STREQ(absolute, c.absolute.c_str());
  }
  // Writing has no fallback and needs no file; a bare name lies in ".".
  cache_->SetCacheFileName((here + "shot.pc2").c_str(), "new.xml", nullptr);
  EXPECT_TRUE(OpenAt(KelCache::eNCFormat, KelCache::eOpenForWrite, 24));
  EXPECT_EQ(TheRecorder().Take(),
            "nc.new(); nc.initFileWrite(./, new, 0, ncx, 250); nc.addChannel(new, Points, 6)");
}

TEST_F(Opening, NotFoundNamesBothCandidates) {
  cache_->SetCacheFileName("/rel\\a.x.pc2", "C:\\cache\\b.pc2", nullptr);
  EXPECT_FALSE(OpenAt(KelCache::eNCFormat, KelCache::eOpenForRead, 1));
  ExpectStatus(KelStatus::eFailure, "Cache file not found: C:/cache/b.xml, /rel/a.x.xml");
  EXPECT_FALSE(OpenAt(kUnknown, KelCache::eOpenForRead, 1));
  ExpectStatus(KelStatus::eFailure, "Cache file not found: C:/cache/b.abc, /rel/a.x.abc");
}

TEST_F(Opening, ClosingWhatIsNotOpen) {
  for (int format = 0; format <= 5; ++format) {
    cache_->SetCacheFileFormat(static_cast<KelCache::EFileFormat>(format), nullptr);
    Soil();
    EXPECT_TRUE(cache_->CloseFile(&status_));
    ExpectClear();
  }
  EXPECT_EQ(TheRecorder().Take(), "");
}

TEST_F(Opening, ClosingEndsTheTimeBlock) {
  Open(KelCache::eNCFormat, true);
  KelTime time;
  EXPECT_TRUE(cache_->BeginWriteAt(time, nullptr));
  EXPECT_TRUE(CacheFields::State(cache_)->beginWriteAtCalled);
  cache_->SetCacheFileFormat(KelCache::ePC2Format, nullptr);
  cache_->CloseFile(nullptr);
  EXPECT_TRUE(CacheFields::State(cache_)->beginWriteAtCalled);
  cache_->SetCacheFileFormat(KelCache::eNCFormat, nullptr);
  cache_->CloseFile(nullptr);
  EXPECT_FALSE(CacheFields::State(cache_)->beginWriteAtCalled);
  EXPECT_EQ(TheRecorder().Take(), "nc.beginWriteAtTime(0); nc.endFileWrite(); nc.delete()");
}

TEST_F(Opening, PointCountsThatDoNotFit) {
  cache_->SetCacheFileFormat(KelCache::ePC2Format, nullptr);
  const unsigned int wraps = 0x15555556;  // x 12 is 8 in 32 bits
  EXPECT_FALSE(cache_->OpenFileForWrite(0, 24, 1, wraps, &status_));
  ExpectStatus(KelStatus::eFailure, "Cache file could not be created: " + folder_.path() + "/shot");
  EXPECT_FALSE(cache_->OpenFile(KelCache::eOpenForRead, KelCache::eNCSingleFile, 1, nullptr,
                                nullptr, 0, wraps, 0, &status_, KelCache::eNCDouble,
                                KelCache::eNCBinaryX));
  ExpectStatus(KelStatus::eInvalidParameter);
  EXPECT_EQ(TheRecorder().Take(), "");
}

TEST_F(Opening, WithoutMemoryNothingOpens) {
  for (const auto format : {KelCache::ePC2Format, KelCache::eNCFormat, KelCache::eAlembicFormat}) {
    for (const auto flag : {KelCache::eOpenForRead, KelCache::eOpenForWrite}) {
      FailEachAllocation(
          [&] {
            const long before = OutstandingBlocks();
            KelCache_internal* state = CacheFields::State(cache_);
            if (!OpenAt(format, flag, 24)) {
              EXPECT_EQ(state->ncCache, nullptr);
              EXPECT_EQ(state->pc2Cache, nullptr);
              EXPECT_EQ(state->alembicCache, nullptr);
            }
            EXPECT_TRUE(cache_->CloseFile(&status_));
            KelFree(state->pc2Buffer);
            state->pc2Buffer = nullptr;
            state->pc2BufferCount = 0;
            status_.Clear();
            EXPECT_EQ(OutstandingBlocks(), before);
          },
          EAllocations::eKelMalloc);
    }
  }
}

}  // namespace
}  // namespace kelsdk::test
