#include "backends/zuPointCache2IO.h"
#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

class Convert : public NcTest {
 protected:
  std::string Pc2() const { return folder_.File("shot.pc2"); }

  void WritePc2(int samples, float start, float rate, int points = 10) const {
    zuPointCache2IO file;
    ASSERT_TRUE(file.initialize(Pc2().c_str(), zuPointCache2IO::writeMode));
    ASSERT_TRUE(file.beginWriteData(points, samples, start, rate));
    for (int i = 0; i < samples; ++i) {
      Bytes array =
          MakeArray(zuCacheData::eNCFloatVectorArray, static_cast<std::size_t>(points), i);
      std::vector<float> floats(array.size() / 4);
      std::memcpy(floats.data(), array.data(), array.size());
      ASSERT_TRUE(file.writeSample(i, floats.data()));
    }
    ASSERT_TRUE(file.endWriteData());
  }

  bool FromPc2(const char* tag, Cache::cacheFileFormat format, int ticksPerFrame) const {
    return Cache::convertFromPc2(Pc2().c_str(), Folder().c_str(), "shot", format, tag,
                                 ticksPerFrame);
  }
  bool ToPc2(const char* base, unsigned int channel, int ticksPerFrame) const {
    return Cache::convertToPc2(Pc2().c_str(), Folder().c_str(), base, channel, ticksPerFrame);
  }
};

TEST_F(Convert, Pc2ThereAndBackIsTheSameFile) {
  const struct {
    int samples;
    float start;
    float rate;
    int ticksPerFrame;
  } rows[] = {{5, 0, 1, 250},       {5, 10, 1, 240},    {5, -2.5f, 0.5f, 200},
              {7, 1.0f, 0.1f, 250}, {1, 3, 2, 250},     {1, 0.5f, 0.25f, 100},
              {4, 0.2f, 5, 200},    {3, 1000, 12, 100}, {2, 1.0f / 3, 1, 240}};
  for (const auto& row : rows) {
    for (const char* tag : {"ncx", "ncc"}) {
      for (const auto format : {Cache::eSingleFile, Cache::eFilePerFrame}) {
        WritePc2(row.samples, row.start, row.rate);
        const Bytes before = test::ReadBytes(Pc2());
        ASSERT_TRUE(FromPc2(tag, format, row.ticksPerFrame));
        ASSERT_EQ(std::remove(Pc2().c_str()), 0);
        EXPECT_TRUE(Verifies("shot"));
        ASSERT_TRUE(ToPc2("shot", 0, row.ticksPerFrame));
        EXPECT_EQ(test::ReadBytes(Pc2()), before) << row.start << " by " << row.rate;
      }
    }
  }
}

TEST_F(Convert, WhatThePc2BecomesAsAChannel) {
  WritePc2(3, 2, 0.5f);
  ASSERT_TRUE(FromPc2("ncx", Cache::eSingleFile, 250));
  Cache cache;
  ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
  char* text = nullptr;
  ASSERT_TRUE(cache.channelName(0, &text));
  EXPECT_STREQ(text, "shot");
  KelFree(text);
  ASSERT_TRUE(cache.channelInterpretation(0, &text));
  EXPECT_STREQ(text, "Points");
  KelFree(text);
  int tick = 0;
  EXPECT_TRUE(cache.getDataTime(0, 1, tick));
  EXPECT_EQ(tick, 625);
  EXPECT_EQ(ReadArray(cache, 0, 625), MakeArray(zuCacheData::eNCFloatVectorArray, 10, 1));
}

TEST_F(Convert, DoublesAndIrregularChannels) {
  CacheSpec spec;
  spec.channels = {{"d", zuCacheData::eNCDoubleVectorArray},
                   {"odd", zuCacheData::eNCFloatVectorArray}};
  for (const int tick : {0, 250, 500, 1250, 1300}) {
    if (tick <= 500) spec.samples.push_back({0, tick, MakeArray(spec.channels[0].type, 4, tick)});
    if (tick != 500) spec.samples.push_back({1, tick, MakeArray(spec.channels[1].type, 4, tick)});
  }
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  ASSERT_TRUE(ToPc2("shot", 0, 250));
  EXPECT_EQ(test::ReadBytes(Pc2()).size(), 32u + 3 * 48);
  ASSERT_TRUE(ToPc2("shot", 1, 250));
  zuPointCache2IO file;
  ASSERT_TRUE(file.initialize(Pc2().c_str(), zuPointCache2IO::readMode));
  EXPECT_EQ(file.sampleCount, 6u) << "a sample for each frame";
  EXPECT_EQ(file.sampleRate, 1.0f);
  const int held[] = {0, 250, 250, 250, 250, 1250};
  for (unsigned int i = 0; i < 6; ++i) {
    float points[12];
    unsigned int count = 4;
    ASSERT_TRUE(file.readSample(i, points, count));
    EXPECT_EQ(std::memcmp(points, MakeArray(spec.channels[1].type, 4, held[i]).data(), 48), 0) << i;
  }
}

TEST_F(Convert, WhatCannotBeConvertedWritesNothing) {
  CacheSpec spec = Frames(2, 4);
  spec.channels.push_back({"scalars", zuCacheData::eNCFloatArray});
  spec.channels.push_back({"counts", zuCacheData::eNCFloatVectorArray});
  spec.channels.push_back({"none", zuCacheData::eNCFloatVectorArray});
  spec.samples.push_back({1, 500, MakeArray(zuCacheData::eNCFloatArray, 4, 1)});
  spec.samples.push_back({2, 500, MakeArray(zuCacheData::eNCFloatVectorArray, 4, 1)});
  spec.samples.push_back({2, 750, MakeArray(zuCacheData::eNCFloatVectorArray, 5, 1)});
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  const auto names = test::NamesIn(folder_.path());
  EXPECT_FALSE(ToPc2("shot", 1, 250)) << "no vectors";
  EXPECT_FALSE(ToPc2("shot", 2, 250)) << "counts that change";
  EXPECT_FALSE(ToPc2("shot", 3, 250)) << "no samples";
  EXPECT_FALSE(ToPc2("shot", 4, 250)) << "no such channel";
  EXPECT_FALSE(ToPc2("shot", 0, 0)) << "no frames";
  EXPECT_FALSE(ToPc2("nothing", 0, 250)) << "no such cache";
  EXPECT_EQ(test::NamesIn(folder_.path()), names);

  const struct {
    const char* why;
    float start;
    float rate;
    int ticksPerFrame;
  } rows[] = {{"no frames", 0, 1, 0},
              {"less than a tick apart", 0, 0.003f, 250},
              {"past the last tick", 1e7f, 1, 250},
              {"no number", 0, std::nanf(""), 250},
              {"at no time", INFINITY, 1, 250}};
  for (const auto& row : rows) {
    WritePc2(3, row.start, row.rate);
    EXPECT_FALSE(Cache::convertFromPc2(Pc2().c_str(), Folder().c_str(), "fresh", Cache::eSingleFile,
                                       "ncx", row.ticksPerFrame))
        << row.why;
    EXPECT_FALSE(test::Exists(folder_.File("fresh.xml"))) << row.why;
  }
  WritePc2(3, 0, 1);
  Bytes cut = test::ReadBytes(Pc2());
  cut.pop_back();
  test::WriteBytes(Pc2(), cut);
  EXPECT_FALSE(Cache::convertFromPc2(Pc2().c_str(), Folder().c_str(), "fresh", Cache::eSingleFile,
                                     "ncx", 250))
      << "cut short";
  EXPECT_FALSE(test::Exists(folder_.File("fresh.xml")));
}

}  // namespace
}  // namespace kelsdk::nc
