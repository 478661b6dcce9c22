#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

class Catalogue : public StandInTest {
 protected:
  // What one operation does on the current format: its result, then the status it leaves.
  std::string Outcome(int operation) {
    Soil();
    KelString text("kept");
    auto type = KelCache::eNCDouble;
    auto count = KelCache::eNCFilePerFrame;
    std::string result;
    switch (operation) {
      case 0: result = std::to_string(cache_->GetChannelCount(&status_)); break;
      case 1: result = std::to_string(cache_->GetChannelIndex("x", &status_)); break;
      case 2: result = std::to_string(cache_->GetChannelName(0, text, &status_)); break;
      case 3: result = std::to_string(cache_->GetChannelDataType(0, type, &status_)); break;
      case 4: result = std::to_string(cache_->GetChannelInterpretation(0, text, &status_)); break;
      case 5: result = std::to_string(cache_->GetCacheType(count, &status_)); break;
      default: result = std::to_string(cache_->EnableMultiChannelFetching(false, &status_)); break;
    }
    return result + " " + std::to_string(status_.GetCode()) + " " + status_.GetErrorString();
  }
};

TEST_F(Catalogue, WhatEachOperationRefuses) {
  const std::string invalid = std::string("0 1 ") + kInvalidFormatText;
  const std::string closed = std::string("0 1 ") + kNotOpenedText;
  const struct {
    int operation;
    std::string none, unknown, pc2Closed, pc2Open, ncClosed, abcClosed, abcOpen;
  } cases[] = {
      {0, "-1 0 ", "-1 0 ", "-" + std::string("1 1 ") + kNotOpenedText, "1 0 ",
       std::string("-1 1 ") + kNotOpenedText, std::string("-1 1 ") + kNotOpenedText, "2 0 "},
      {1, "-1 4 old", "-1 0 ", "-1 1 Cache file not open!", "0 0 ", "-1 1 Cache file not open!",
       "-1 1 Cache file not open!", "1 0 "},
      {2, "0 0 ", "0 0 ", closed, "1 0 ", closed, closed, "1 0 "},
      {3, "0 0 ", "0 0 ", invalid, invalid, closed, invalid, invalid},
      {4, invalid, invalid, invalid, invalid, closed, invalid, invalid},
      {5, invalid, invalid, invalid, invalid, closed, invalid, invalid},
      {6, invalid, invalid, invalid, invalid, closed, invalid, invalid},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.operation);
    cache_->SetCacheFileFormat(KelCache::eUnknownFormat, nullptr);
    EXPECT_EQ(Outcome(c.operation), c.none);
    cache_->SetCacheFileFormat(static_cast<KelCache::EFileFormat>(9), nullptr);
    EXPECT_EQ(Outcome(c.operation), c.unknown);
    cache_->SetCacheFileFormat(KelCache::ePC2Format, nullptr);
    EXPECT_EQ(Outcome(c.operation), c.pc2Closed);
    Open(KelCache::ePC2Format);
    EXPECT_EQ(Outcome(c.operation), c.pc2Open);
    cache_->CloseFile(nullptr);
    cache_->SetCacheFileFormat(KelCache::eNCFormat, nullptr);
    EXPECT_EQ(Outcome(c.operation), c.ncClosed);
    cache_->SetCacheFileFormat(KelCache::eAlembicFormat, nullptr);
    EXPECT_EQ(Outcome(c.operation), c.abcClosed);
    Open(KelCache::eAlembicFormat);
    EXPECT_EQ(Outcome(c.operation), c.abcOpen);
    cache_->CloseFile(nullptr);
  }
}

TEST_F(Catalogue, ChannelsOfAnNCCache) {
  TheRecorder().channels = {{"points", "Points", 6, 4}, {"ids", "Ids", 0, 4}};
  TheRecorder().layout = 1;
  Open(KelCache::eNCFormat);
  KelString text;
  auto type = KelCache::eNCDouble;
  auto layout = KelCache::eNCSingleFile;
  EXPECT_EQ(cache_->GetChannelCount(&status_), 2);
  EXPECT_EQ(cache_->GetChannelIndex("ids", nullptr), 1);
  EXPECT_EQ(cache_->GetChannelIndex("none", &status_), -1);
  ExpectClear();
  EXPECT_EQ(cache_->GetChannelIndex(nullptr, nullptr), 0);
  EXPECT_EQ(cache_->GetChannelIndex("", nullptr), 0);
  EXPECT_TRUE(cache_->GetChannelName(1, text, nullptr));
  EXPECT_STREQ(text, "ids");
  EXPECT_TRUE(cache_->GetChannelInterpretation(1, text, &status_));
  EXPECT_STREQ(text, "Ids");
  EXPECT_TRUE(cache_->GetChannelDataType(1, type, nullptr));
  EXPECT_EQ(type, KelCache::eNCUnknownData);
  EXPECT_TRUE(cache_->GetCacheType(layout, nullptr));
  EXPECT_EQ(layout, KelCache::eNCFilePerFrame);
  EXPECT_TRUE(cache_->EnableMultiChannelFetching(false, nullptr));
  EXPECT_EQ(
      TheRecorder().Take(),
      "nc.hasChannelByName(ids, 0); nc.hasChannelByName(none, 0); nc.channelName(1); "
      "nc.channelInterpretation(1); nc.channelDataType(1); nc.setOptimizeMultiChannelRead(0)");

  Soil();
  EXPECT_FALSE(cache_->GetChannelName(2, text, &status_));
  ExpectClear();
  EXPECT_FALSE(cache_->GetChannelDataType(2, type, &status_));
  ExpectClear();
  for (const int index : {-1, 2}) {
    EXPECT_FALSE(cache_->GetChannelInterpretation(index, text, &status_));
    ExpectStatus(KelStatus::eIndexOutOfRange);
  }
  TheRecorder().refused = {"nc.channelInterpretation", "nc.channelName"};
  EXPECT_FALSE(cache_->GetChannelInterpretation(0, text, &status_));
  ExpectStatus(KelStatus::eFailure, "Error retrieving channel interpretation data");
  EXPECT_FALSE(cache_->GetChannelName(0, text, &status_)) << "and the string handed out is freed";
  EXPECT_STREQ(text, "Ids");
}

TEST_F(Catalogue, NegativeIndexComesBeforeTheFormat) {
  KelString text;
  auto type = KelCache::eNCDouble;
  EXPECT_FALSE(cache_->GetChannelDataType(-1, type, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
  EXPECT_FALSE(cache_->GetChannelName(-1, text, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
}

TEST_F(Catalogue, AddChannelNeedsOnlyTheLibrary) {
  unsigned int index = 77;
  EXPECT_FALSE(cache_->AddChannel("a", KelCache::eNCFloatArray, "b", index, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
  Open(KelCache::eNCFormat, true);
  EXPECT_FALSE(cache_->AddChannel(nullptr, KelCache::eNCFloatArray, "b", index, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
  EXPECT_FALSE(cache_->AddChannel("a", KelCache::eNCFloatArray, nullptr, index, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
  cache_->SetCacheFileFormat(KelCache::eUnknownFormat, nullptr);
  EXPECT_TRUE(cache_->AddChannel("a", static_cast<KelCache::ENCDataType>(9), "b", index, &status_));
  ExpectClear();
  EXPECT_EQ(index, 1U);
  TheRecorder().refused = {"nc.addChannel"};
  EXPECT_FALSE(cache_->AddChannel("a", KelCache::eNCFloatArray, "b", index, &status_));
  ExpectClear();
  EXPECT_EQ(TheRecorder().Take(), "nc.addChannel(a, b, 9); nc.addChannel(a, b, 5)");
}

}  // namespace
}  // namespace kelsdk::test
