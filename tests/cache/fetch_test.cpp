#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

class Fetch : public StandInTest {
 protected:
  bool FetchAt(long long time = 0, unsigned int channel = 0) {
    values_ = reinterpret_cast<float*>(1);
    length_ = 77;
    const bool fetched = cache_->Read(&values_, length_, KelTime(time), channel);
    if (!fetched) {
      EXPECT_EQ(values_, nullptr);
      EXPECT_EQ(length_, 0U);
    }
    return fetched;
  }
  void SetChannel(int type, unsigned int elements) {
    TheRecorder().channels = {{"c", "", type, elements}};
  }

  float* values_ = nullptr;
  unsigned int length_ = 0;
};

TEST_F(Fetch, ElementTypes) {
  const struct {
    int type;
    unsigned int size, length;
    bool isFloat;
  } rows[] = {{-1, 0, 0, false}, {0, 0, 0, false}, {1, 0, 0, false},
              {2, 8, 1, false},  {3, 8, 3, false}, {4, 4, 1, false},
              {5, 4, 1, true},   {6, 4, 3, true},  {7, 0, 0, false}};
  for (const auto& row : rows) {
    const auto type = static_cast<zuCacheData::zuCacheDataType>(row.type);
    EXPECT_EQ(GetTypeSize(type), row.size) << row.type;
    EXPECT_EQ(GetTypeLength(type), row.length) << row.type;
    EXPECT_EQ(GetTypeIsFloat(type), row.isFloat) << row.type;
    if (row.type < 0) continue;
    SetChannel(row.type, 5);
    Open(KelCache::eNCFormat);
    TheRecorder().firstValue = 16777217;  // 2^24 + 1 is no float
    EXPECT_EQ(FetchAt(), row.length != 0) << row.type;
    if (row.length != 0) {
      EXPECT_EQ(length_, 5 * row.length);
      EXPECT_EQ(values_[0], 16777216.0F);
      EXPECT_EQ(values_ == CacheFields::ReadBuffer(cache_), row.isFloat);
      EXPECT_EQ(values_ == CacheFields::FloatBuffer(cache_), !row.isFloat);
    }
    cache_->CloseFile(nullptr);
  }
}

TEST_F(Fetch, WhatCannotBeFetched) {
  EXPECT_FALSE(FetchAt());
  for (const int format : {1, 2, 3, 9}) {
    cache_->SetCacheFileFormat(static_cast<KelCache::EFileFormat>(format), nullptr);
    EXPECT_FALSE(FetchAt());
  }
  Open(KelCache::ePC2Format, true);
  EXPECT_FALSE(FetchAt());
  cache_->CloseFile(nullptr);
  TheRecorder().Take();

  for (const char* refused : {"nc.channelDataType", "nc.getArrayLengthAtTime",
                              "nc.getArrayDataAtTime", "pc2.readSample", "abc.GetChannelBuffer"}) {
    TheRecorder().refused = {refused};
    Open(refused[0] == 'n'   ? KelCache::eNCFormat
         : refused[0] == 'p' ? KelCache::ePC2Format
                             : KelCache::eAlembicFormat);
    EXPECT_FALSE(FetchAt()) << refused;
    cache_->CloseFile(nullptr);
  }
  TheRecorder() = {};
  SetChannel(5, 0);
  Open(KelCache::eNCFormat);
  EXPECT_FALSE(FetchAt());
  TheRecorder().Take();
  EXPECT_FALSE(FetchAt(7697693LL * 2147483648LL));
  EXPECT_EQ(TheRecorder().Take(), "nc.channelDataType(0)");
  TheRecorder().pointCount = 0;
  Open(KelCache::ePC2Format);
  EXPECT_FALSE(FetchAt());
  EXPECT_EQ(TheRecorder().Take(), "");
}

TEST_F(Fetch, SizeQueriesReadNoData) {
  Open(KelCache::ePC2Format);
  EXPECT_TRUE(cache_->Read(nullptr, length_, KelTime(-5), 0));
  EXPECT_EQ(length_, 12U);
  Open(KelCache::eNCFormat);
  EXPECT_TRUE(cache_->Read(nullptr, length_, KelTime(0), 0));
  Open(KelCache::eAlembicFormat);
  TheRecorder().Take();
  EXPECT_TRUE(cache_->Read(nullptr, length_, KelTime(0), 1));
  EXPECT_EQ(TheRecorder().Take(),
            "abc.GetChannelTypeSize(1); abc.GetChannelDataLength(1); "
            "abc.GetChannelBufferLength(1); abc.GetChannelTypeIsFloat(1)");
}

TEST_F(Fetch, PC2FramesAreSampleNumbers) {
  TheRecorder().startFrame = 10;
  Open(KelCache::ePC2Format);
  EXPECT_TRUE(FetchAt(10 * 1924423250LL));
  EXPECT_TRUE(FetchAt(10 * 1924423250LL - 1));
  EXPECT_TRUE(FetchAt(-1, 99));
  EXPECT_EQ(TheRecorder().Take(),
            "pc2.readSample(10, 4); pc2.readSample(9, 4); pc2.readSample(4294967295, 4)");
  EXPECT_EQ(values_, CacheFields::ReadBuffer(cache_));
}

TEST_F(Fetch, AlembicLayouts) {
  Open(KelCache::eAlembicFormat);
  const struct {
    unsigned int typeSize, dataLength, bufferLength;
    bool fetched;
  } cases[] = {{12, 3, 4, true}, {3, 3, 1000, true}, {16, 2, 4, true},          {12, 0, 4, false},
               {2, 3, 4, false}, {12, 3, 0, false},  {12, 3, 0x15555556, false}};
  for (const auto& c : cases) {
    TheRecorder().typeSize = c.typeSize;
    TheRecorder().dataLength = c.dataLength;
    TheRecorder().bufferLength = c.bufferLength;
    TheRecorder().Take();
    EXPECT_EQ(FetchAt(5), c.fetched) << c.typeSize;
    EXPECT_EQ(TheRecorder().Take().find("abc.GetChannelBuffer(") != std::string::npos, c.fetched);
    if (c.fetched) {
      EXPECT_EQ(length_, c.dataLength * c.bufferLength);
      EXPECT_GE(CacheFields::Capacity(cache_), length_ * 4) << "floats arrive whatever the type";
      EXPECT_EQ(values_[length_ - 1], static_cast<float>(length_));
    }
  }
}

TEST_F(Fetch, LayoutsAreReusedAcrossFormatsAndOnlyGrow) {
  Open(KelCache::ePC2Format);
  EXPECT_TRUE(FetchAt());
  const void* buffer = CacheFields::ReadBuffer(cache_);
  const long blocks = OutstandingBlocks();
  cache_->CloseFile(nullptr);

  SetChannel(zuCacheData::eNCFloatVectorArray, 4);  // the same layout
  Open(KelCache::eNCFormat);
  EXPECT_TRUE(FetchAt());
  EXPECT_EQ(values_, buffer);
  EXPECT_EQ(CacheFields::FloatBuffer(cache_), nullptr);
  SetChannel(zuCacheData::eNCFloatArray, 12);
  EXPECT_TRUE(FetchAt());
  EXPECT_EQ(values_, buffer);
  SetChannel(zuCacheData::eNCInt32Array, 12);  // the float buffer comes later
  EXPECT_TRUE(FetchAt());
  EXPECT_EQ(values_, CacheFields::FloatBuffer(cache_));
  EXPECT_EQ(values_[11], 12.0F);
  SetChannel(zuCacheData::eNCFloatArray, 12);  // and is not used by floats
  EXPECT_TRUE(FetchAt());
  EXPECT_EQ(values_, buffer);
  EXPECT_EQ(CacheFields::Capacity(cache_), 48U);
  EXPECT_EQ(OutstandingBlocks() - blocks, 1);

  SetChannel(zuCacheData::eNCDoubleArray, 100);
  EXPECT_TRUE(FetchAt());
  SetChannel(zuCacheData::eNCInt32Array, 150);
  EXPECT_TRUE(FetchAt());
  EXPECT_EQ(CacheFields::Capacity(cache_), 800U);
  EXPECT_EQ(values_[149], 150.0F);
}

// Wherever memory runs out, the layout that stays is one that the buffers really have.
TEST_F(Fetch, WithoutMemoryTheOldLayoutStays) {
  const struct {
    int type;
    unsigned int elements;
  } layouts[] = {{5, 10}, {4, 10}, {4, 20}, {3, 50}, {6, 7}, {2, 500}};
  unsigned long failed = 0;
  for (unsigned long n = 1; failed == n - 1; ++n) {
    cache_->Destroy();
    cache_ = KelCache::Create(manager_, "cache");
    cache_->SetCacheFileName("", folder_.File("shot.xml").c_str(), nullptr);
    Open(KelCache::eNCFormat);
    FailAllocation failure(n, EAllocations::eKelMalloc);
    for (const auto& layout : layouts) {
      SetChannel(layout.type, layout.elements);
      if (!FetchAt() && !FetchAt()) FAIL() << "only one allocation fails";
      // Touch all of it: the address sanitizer sees a byte too far.
      float sum = 0;
      for (unsigned int i = 0; i < length_; ++i) sum += values_[i];
      EXPECT_GT(sum, 0.0F);
    }
    if (failure.Reached()) ++failed;
  }
  EXPECT_GE(failed, 5U);
}

}  // namespace
}  // namespace kelsdk::test
