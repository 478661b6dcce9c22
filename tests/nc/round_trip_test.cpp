#include <optional>

#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

struct Form {
  Cache::cacheFileFormat format;
  const char* tag;
};

constexpr Form kForms[] = {{Cache::eSingleFile, "ncx"},
                           {Cache::eSingleFile, "ncc"},
                           {Cache::eFilePerFrame, "ncx"},
                           {Cache::eFilePerFrame, "ncc"}};

// One channel of each type and an irregular one, on both sides of frame 0 and between frames.
CacheSpec AllTypes(const Form& form, int ticksPerFrame) {
  CacheSpec spec;
  spec.format = form.format;
  spec.tag = form.tag;
  spec.ticksPerFrame = ticksPerFrame;
  spec.channels = {
      {"weights", zuCacheData::eNCDoubleArray}, {"rest", zuCacheData::eNCDoubleVectorArray},
      {"ids", zuCacheData::eNCInt32Array},      {"density", zuCacheData::eNCFloatArray},
      {"P", zuCacheData::eNCFloatVectorArray},  {"odd", zuCacheData::eNCFloatVectorArray}};
  for (int frame = -3; frame <= 6; ++frame) {
    const int tick = frame * ticksPerFrame;
    for (unsigned int c = 0; c < 5; ++c) {
      // The second type never moves; counts vary in the third.
      const int seed = c == 1 ? 7 : frame + 10;
      const std::size_t count = c == 2 ? static_cast<std::size_t>(frame + 3) : 100;
      spec.samples.push_back({c, tick, MakeArray(spec.channels[c].type, count, seed)});
    }
    if (frame == -3 || frame == 0 || frame == 5) {
      spec.samples.push_back({5, tick, MakeArray(spec.channels[5].type, 33, frame)});
    }
    if (frame == 2) {
      spec.samples.push_back({5, tick + 1, MakeArray(spec.channels[5].type, 500, 99)});
    }
  }
  return spec;
}

using RoundTrip = NcTest;

TEST_F(RoundTrip, EveryTypeFormRateAndTime) {
  for (const Form& form : kForms) {
    for (const int ticksPerFrame : {250, 240, 200, 100, 1, 0}) {
      const CacheSpec spec = AllTypes(form, ticksPerFrame > 0 ? ticksPerFrame : 10);
      CacheSpec written = spec;
      written.ticksPerFrame = ticksPerFrame;
      if (ticksPerFrame == 0) {
        for (Sample& sample : written.samples) sample.tick /= 10;
      }
      SCOPED_TRACE(std::string(form.tag) + (form.format != 0 ? " per frame, " : ", ") +
                   std::to_string(ticksPerFrame));
      ASSERT_TRUE(Write(Folder(), "shot", written));
      EXPECT_TRUE(Verifies("shot"));
      for (const bool groups : {false, true}) {
        Cache cache;
        ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str())) << cache.errorString();
        cache.setOptimizeMultiChannelRead(groups);
        EXPECT_EQ(cache.format(), form.format);
        EXPECT_EQ(cache.getTicksPerFrame(), ticksPerFrame);
        EXPECT_TRUE(ReadAll(cache) == ContentsOf(written));
      }
    }
  }
}

TEST_F(RoundTrip, CatalogueAndTimes) {
  for (const Form& form : kForms) {
    ASSERT_TRUE(Write(Folder(), "shot", AllTypes(form, 250)));
    Cache cache;
    ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
    EXPECT_EQ(cache.numChannels(), 6u);
    unsigned int index = 0;
    EXPECT_TRUE(cache.hasChannelByName("P", index));
    EXPECT_EQ(index, 4u);
    EXPECT_FALSE(cache.hasChannelByName("nothing", index));
    char* text = nullptr;
    ASSERT_TRUE(cache.channelName(5, &text));
    EXPECT_STREQ(text, "odd");
    KelFree(text);
    EXPECT_FALSE(cache.channelName(6, &text));

    int ticks = 0;
    EXPECT_TRUE(cache.getChannelStartTime(4, ticks));
    EXPECT_EQ(ticks, -750);
    EXPECT_TRUE(cache.getChannelEndTime(5, ticks));
    EXPECT_EQ(ticks, 1250);
    EXPECT_TRUE(cache.isChannelSamplingRegular(4));
    EXPECT_FALSE(cache.isChannelSamplingRegular(5));
    EXPECT_TRUE(cache.channelSamplingRate(0, ticks));
    EXPECT_EQ(ticks, 250);
    EXPECT_FALSE(cache.channelSamplingRate(5, ticks));
    EXPECT_EQ(cache.getDataCount(5), 4u);
    EXPECT_TRUE(cache.getNextTimeWithData(5, 0, ticks));
    EXPECT_EQ(ticks, 501);
    EXPECT_TRUE(cache.getNextTimeWithData(500, ticks));
    EXPECT_EQ(ticks, 501);
    EXPECT_FALSE(cache.getNextTimeWithData(1500, ticks));
  }
}

TEST_F(RoundTrip, RoomOfTheCaller) {
  ASSERT_TRUE(Write(Folder(), "shot", Frames(2, 4)));
  Cache cache;
  ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
  std::vector<float> array(3 * 6, 5.0f);
  void* data = array.data();
  unsigned int count = 3;
  EXPECT_FALSE(cache.getArrayDataAtTime(0, 0, data, count));
  EXPECT_EQ(array, std::vector<float>(18, 5.0f)) << "too little room: nothing is written";
  count = 6;
  EXPECT_TRUE(cache.getArrayDataAtTime(0, 0, data, count));
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(data, array.data());
  EXPECT_NE(array[11], 5.0f);
  EXPECT_EQ(std::vector<float>(array.begin() + 12, array.end()), std::vector<float>(6, 0.0f));
}

TEST_F(RoundTrip, EqualNeighboursAreStoredOnce) {
  CacheSpec spec = Frames(1, 1000);
  for (int frame = 1; frame < 50; ++frame) {
    spec.samples.push_back({0, frame * 250, spec.samples[0].array});
  }
  for (const char* tag : {"ncx", "ncc"}) {
    spec.tag = tag;
    ASSERT_TRUE(Write(Folder(), "still", spec));
    EXPECT_LT(test::ReadBytes(folder_.File(std::string("still.") + tag)).size(), 12000u + 10000u);
    EXPECT_TRUE(Verifies("still"));
    EXPECT_TRUE(ReadCache(Folder(), "still") == ContentsOf(spec));
  }
}

TEST_F(RoundTrip, FilesAndTheirNames) {
  CacheSpec spec = Frames(3, 5);
  spec.format = Cache::eFilePerFrame;
  spec.samples[0].tick = -1;
  spec.samples[1].tick = 0;
  spec.samples[2].tick = 3125;
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  EXPECT_EQ(test::NamesIn(folder_.path()),
            (std::vector<std::string>{"shot.xml", "shotFrame-1Tick249.ncx", "shotFrame0.ncx",
                                      "shotFrame12Tick125.ncx"}));
  Cache cache;
  ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
  ASSERT_EQ(cache.getDataFileCount(), 4u);
  const char* const names[] = {"shot.xml", "shotFrame-1Tick249.ncx", "shotFrame0.ncx",
                               "shotFrame12Tick125.ncx"};
  for (unsigned int i = 0; i < 4; ++i) {
    char* path = nullptr;
    ASSERT_TRUE(cache.getDataFilePath(i, &path));
    EXPECT_EQ(path, Folder() + names[i]);
    KelFree(path);
  }
  char* path = nullptr;
  EXPECT_FALSE(cache.getDataFilePath(4, &path));
}

TEST_F(RoundTrip, AMissingFrameFailsForItsTimeAlone) {
  CacheSpec spec = Frames(4, 5);
  spec.format = Cache::eFilePerFrame;
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  ASSERT_EQ(std::remove(folder_.File("shotFrame1.ncx").c_str()), 0);
  ASSERT_EQ(
      std::rename(folder_.File("shotFrame2.ncx").c_str(), folder_.File("shotFrame3.ncx").c_str()),
      0);
  Cache cache;
  ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
  EXPECT_EQ(ReadArray(cache, 0, 0), spec.samples[0].array);
  EXPECT_FALSE(ReadArray(cache, 0, 250));
  EXPECT_NE(std::string(cache.errorString()).find("shotFrame1.ncx"), std::string::npos);
  EXPECT_FALSE(ReadArray(cache, 0, 500));
  EXPECT_FALSE(ReadArray(cache, 0, 750)) << "frame 2 under the name of frame 3";
  EXPECT_EQ(ReadArray(cache, 0, 0), spec.samples[0].array);
}

TEST_F(RoundTrip, ReadsWhileWriting) {
  for (const Form& form : kForms) {
    CacheSpec spec = AllTypes(form, 250);
    Cache cache;
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", spec));
    EXPECT_TRUE(ReadAll(cache) == ContentsOf(spec));
    // In the open block as well.
    Bytes array = MakeArray(spec.channels[4].type, 10, 1);
    ASSERT_TRUE(cache.beginWriteAtTime(5000));
    ASSERT_TRUE(cache.addArrayData(4, 5000, array.data(), 10));
    EXPECT_EQ(ReadArray(cache, 4, 5000), array);
    EXPECT_EQ(ReadArray(cache, 4, 0), ContentsOf(spec)[4][0]);
    EXPECT_TRUE(cache.endFileWrite()) << "which ends the block";
    Cache again;
    ASSERT_TRUE(again.initFileRead("shot", Folder().c_str()));
    EXPECT_EQ(ReadArray(again, 4, 5000), array);
  }
}

}  // namespace
}  // namespace kelsdk::nc
