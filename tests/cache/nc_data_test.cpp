#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

class NCData : public StandInTest {
 protected:
  // One call of the form for doubles (0), floats (1) or integers (2), two elements.
  bool Write(int form, unsigned int count = 2, bool null = false) {
    KelTime time(46186158000);
    switch (form) {
      case 0: return cache_->Write(0, time, null ? nullptr : doubles_, count, &status_);
      case 1: return cache_->Write(0, time, null ? nullptr : floats_, count, &status_);
      default: return cache_->Write(0, time, null ? nullptr : ints_, count, &status_);
    }
  }
  bool Read(int form, unsigned int count = 2, bool null = false) {
    KelTime time(46186158000);
    switch (form) {
      case 0: return cache_->Read(0, time, null ? nullptr : doubles_, count, &status_);
      case 1: return cache_->Read(0, time, null ? nullptr : floats_, count, &status_);
      default: return cache_->Read(0, time, null ? nullptr : ints_, count, &status_);
    }
  }

  double doubles_[6] = {0.1, 2, 3, 4, 5, 6};
  float floats_[6] = {0.1F, 2, 3, 4, 5, 6};
  int ints_[6] = {1, 2, 3, 4, 5, 6};
};

enum EWay { eRefused, eDirect, eConverting };

// Rows: element types 0 to 7; columns: arrays of doubles, floats, integers.
constexpr EWay kWays[8][3] = {
    {eRefused, eRefused, eRefused},   {eRefused, eRefused, eRefused},
    {eDirect, eConverting, eRefused}, {eDirect, eConverting, eRefused},
    {eRefused, eRefused, eDirect},    {eConverting, eDirect, eRefused},
    {eConverting, eDirect, eRefused}, {eRefused, eRefused, eRefused},
};

TEST_F(NCData, EveryArrayMeetsEveryElementType) {
  Open(KelCache::eNCFormat, true);
  for (int type = 0; type < 8; ++type) {
    for (int form = 0; form < 3; ++form) {
      SCOPED_TRACE(std::to_string(type) + " " + std::to_string(form));
      const EWay way = kWays[type][form];
      const size_t values = type == 3 || type == 6 ? 6 : 2;
      const void* mine = form == 0   ? static_cast<void*>(doubles_)
                         : form == 1 ? static_cast<void*>(floats_)
                                     : static_cast<void*>(ints_);
      TheRecorder().channels[0].type = type;

      TheRecorder().Take();
      Soil();
      EXPECT_EQ(Write(form), way != eRefused);
      if (way == eRefused) {
        ExpectStatus(KelStatus::eFailure);
        EXPECT_EQ(TheRecorder().Take(), "nc.channelDataType(0)");
      } else {
        ExpectClear();
        EXPECT_EQ(TheRecorder().Take(),
                  "nc.channelDataType(0); nc.beginWriteAtTime(6000); nc.addArrayData(0, 6000, 2); "
                  "nc.endWriteAtTime()");
        ASSERT_EQ(TheRecorder().written.size(), values);
        EXPECT_EQ(TheRecorder().lastPointer == mine, way == eDirect);
        // 0.1 as a double only where no float is on the way.
        const double first = form == 2 ? 1.0 : form == 0 && way == eDirect ? 0.1 : double(0.1F);
        EXPECT_EQ(TheRecorder().written[0], first);
      }

      Soil();
      TheRecorder().firstValue = 7;
      EXPECT_EQ(Read(form), way != eRefused);
      if (way == eRefused) {
        ExpectStatus(KelStatus::eFailure);
        EXPECT_EQ(TheRecorder().Take(), "nc.channelDataType(0)");
      } else {
        ExpectClear();
        EXPECT_EQ(TheRecorder().Take(), "nc.channelDataType(0); nc.getArrayDataAtTime(0, 6000, 2)");
        EXPECT_EQ(TheRecorder().lastPointer == mine, way == eDirect);
        const double got = form == 0   ? doubles_[values - 1]
                           : form == 1 ? double(floats_[values - 1])
                                       : double(ints_[values - 1]);
        EXPECT_EQ(got, 6.0 + double(values));
      }
      doubles_[0] = 0.1;
      floats_[0] = 0.1F;
      ints_[0] = 1;
    }
  }
}

TEST_F(NCData, SeveralChannelsNeedABlock) {
  Open(KelCache::eNCFormat, true);
  TheRecorder().channels.push_back({"more", "", zuCacheData::eNCInt32Array, 1});
  TheRecorder().channels[0].type = zuCacheData::eNCDouble;
  EXPECT_FALSE(Write(0));
  ExpectStatus(KelStatus::eFailure, "BeginWriteAt not called");
  TheRecorder().channels[0].type = zuCacheData::eNCDoubleArray;
  TheRecorder().Take();
  KelTime time(-7697693);
  EXPECT_TRUE(cache_->BeginWriteAt(time, &status_));
  EXPECT_TRUE(Write(0));
  EXPECT_TRUE(cache_->BeginWriteAt(time, &status_));
  EXPECT_TRUE(cache_->EndWriteAt(&status_));
  EXPECT_FALSE(CacheFields::State(cache_)->beginWriteAtCalled);
  EXPECT_FALSE(Write(0));
  EXPECT_TRUE(cache_->EndWriteAt(&status_)) << "without a block too";
  EXPECT_EQ(TheRecorder().Take(),
            "nc.beginWriteAtTime(-1); nc.channelDataType(0); nc.addArrayData(0, 6000, 2); "
            "nc.beginWriteAtTime(-1); nc.endWriteAtTime(); nc.channelDataType(0); "
            "nc.endWriteAtTime()");
}

TEST_F(NCData, WhatIsRefusedBeforeTheLibraryIsAsked) {
  for (int form = 0; form < 3; ++form) {
    EXPECT_FALSE(Write(form, 2, true));
    ExpectStatus(KelStatus::eInvalidParameter);
    EXPECT_FALSE(Write(form));
    ExpectStatus(KelStatus::eFailure, kInvalidFormatText);
    for (const auto format : {KelCache::ePC2Format, KelCache::eUnknownFormat}) {
      cache_->SetCacheFileFormat(format, nullptr);
      EXPECT_FALSE(Read(form));
      ExpectStatus(KelStatus::eFailure, kInvalidFormatText);
    }
    cache_->SetCacheFileFormat(KelCache::eNCFormat, nullptr);
    EXPECT_FALSE(Write(form));
    ExpectStatus(KelStatus::eFailure, kNotOpenedText);
    EXPECT_FALSE(Read(form));
    ExpectStatus(KelStatus::eFailure, kNotOpenedText);
    Open(KelCache::eNCFormat);
    EXPECT_FALSE(Write(form));
    ExpectStatus(KelStatus::eFailure, kInvalidFlagText);
    KelTime time;
    EXPECT_FALSE(cache_->BeginWriteAt(time, &status_));
    ExpectStatus(KelStatus::eFailure, kInvalidFlagText);
    EXPECT_FALSE(cache_->EndWriteAt(&status_));
    ExpectStatus(KelStatus::eFailure, kInvalidFlagText);
    EXPECT_EQ(TheRecorder().Take(), "");
    TheRecorder().refused = {"nc.channelDataType"};
    EXPECT_FALSE(Read(form));
    ExpectClear();
    TheRecorder() = {};
    cache_->CloseFile(nullptr);
    cache_->SetCacheFileFormat(KelCache::eUnknownFormat, nullptr);
    TheRecorder().Take();
  }
}

TEST_F(NCData, LimitsOfTimesCountsAndMemory) {
  Open(KelCache::eNCFormat, true);
  TheRecorder().channels[0].type = zuCacheData::eNCDoubleVectorArray;
  KelTime beyond(7697693LL * 2147483648LL);
  TheRecorder().Take();
  EXPECT_FALSE(cache_->BeginWriteAt(beyond, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
  EXPECT_FALSE(CacheFields::State(cache_)->beginWriteAtCalled);
  EXPECT_FALSE(cache_->Write(0, beyond, doubles_, 2, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
  EXPECT_FALSE(cache_->Read(0, beyond, doubles_, 2, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
  // 3 x 8 bytes x this wraps to 8.
  EXPECT_FALSE(Write(1, 0x15555556 / 2 + 0x80000000));
  ExpectStatus(KelStatus::eInvalidParameter);
  EXPECT_FALSE(Read(1, 0x15555556 / 2 + 0x80000000));
  ExpectStatus(KelStatus::eInvalidParameter);
  EXPECT_FALSE(Read(0, 2, true));
  ExpectStatus(KelStatus::eInvalidParameter);
  for (const auto& call : TheRecorder().calls) EXPECT_EQ(call, "nc.channelDataType(0)");

  FailAllocation failure(1, EAllocations::eKelMalloc);
  EXPECT_FALSE(Write(1));
  ExpectClear();
}

TEST_F(NCData, ZeroElementsAndRefusals) {
  Open(KelCache::eNCFormat, true);
  EXPECT_TRUE(Write(1, 0));
  EXPECT_TRUE(Write(0, 0));
  EXPECT_TRUE(Read(1, 0, true));
  EXPECT_TRUE(Read(0, 0, true));
  TheRecorder().refused = {"nc.addArrayData", "nc.getArrayDataAtTime"};
  TheRecorder().Take();
  EXPECT_FALSE(Write(0));
  ExpectClear();
  EXPECT_EQ(TheRecorder().calls.back(), "nc.endWriteAtTime()") << "its own block is closed";
  doubles_[0] = 42;
  EXPECT_FALSE(Read(0));
  ExpectClear();
  EXPECT_EQ(doubles_[0], 42) << "a converting read that fails leaves the caller's array";
}

TEST_F(NCData, AlembicGivesFloatsOnly) {
  KelTime time(46186158001);
  cache_->SetCacheFileFormat(KelCache::eAlembicFormat, nullptr);
  EXPECT_FALSE(Read(1));
  ExpectStatus(KelStatus::eFailure, kNotOpenedText);
  Open(KelCache::eAlembicFormat);
  EXPECT_TRUE(cache_->Read(1, time, floats_, 2, &status_));
  EXPECT_EQ(floats_[5], 6.0F);
  EXPECT_EQ(TheRecorder().Take(), "abc.GetChannelBuffer(1, 2, 46186158001)");
  EXPECT_FALSE(cache_->Read(1, time, static_cast<float*>(nullptr), 2, &status_));
  ExpectStatus(KelStatus::eInvalidParameter);
  EXPECT_FALSE(Read(0));
  ExpectStatus(KelStatus::eFailure, kInvalidFormatText);
  EXPECT_FALSE(Read(2));
  ExpectStatus(KelStatus::eFailure, kInvalidFormatText);
  EXPECT_EQ(TheRecorder().Take(), "");
}

}  // namespace
}  // namespace kelsdk::test
