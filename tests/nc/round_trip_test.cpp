#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

// One channel of each type and an irregular one, on both sides of frame 0 and between frames.
CacheSpec AllTypes(int ticksPerFrame) {
  CacheSpec spec;
  spec.ticksPerFrame = ticksPerFrame;
  spec.channels = {
      {"weights", zuCacheData::eNCDoubleArray}, {"rest", zuCacheData::eNCDoubleVectorArray},
      {"ids", zuCacheData::eNCInt32Array},      {"density", zuCacheData::eNCFloatArray},
      {"P", zuCacheData::eNCFloatVectorArray},  {"odd", zuCacheData::eNCFloatVectorArray}};
  const int step = std::max(ticksPerFrame, 1);
  for (int frame = -3; frame <= 6; ++frame) {
    for (unsigned int c = 0; c < 5; ++c) {
      // The second type never moves; counts vary in the third.
      const int seed = c == 1 ? 7 : frame + 10;
      const std::size_t count = c == 2 ? static_cast<std::size_t>(frame + 3) : 400;
      spec.samples.push_back({c, frame * step, MakeArray(spec.channels[c].type, count, seed)});
    }
    if (frame == -3 || frame == 0 || frame == 5) {
      spec.samples.push_back({5, frame * step, MakeArray(spec.channels[5].type, 33, frame)});
    }
    if (frame == 2 && step > 1) {
      spec.samples.push_back({5, frame * step + 1, MakeArray(spec.channels[5].type, 500, 99)});
    }
  }
  return spec;
}

using RoundTrip = NcTest;

TEST_F(RoundTrip, EveryTypeFormRateAndTime) {
  for (const Form& form : kForms) {
    for (const int ticksPerFrame : {250, 240, 1, 0}) {
      SCOPED_TRACE(form.Name() + std::to_string(ticksPerFrame));
      const CacheSpec spec = form.Of(AllTypes(ticksPerFrame));
      {
        Cache writer;
        ASSERT_TRUE(WriteOpen(writer, Folder(), "shot", spec));
        EXPECT_TRUE(ReadAll(writer) == ContentsOf(spec)) << "while it is being written";
        ASSERT_TRUE(writer.endFileWrite());
      }
      EXPECT_TRUE(Verifies("shot"));
      for (const bool groups : {false, true}) {
        Cache cache;
        ASSERT_TRUE(Open(cache)) << cache.errorString();
        cache.setOptimizeMultiChannelRead(groups);
        EXPECT_EQ(cache.format(), form.format);
        EXPECT_EQ(cache.getTicksPerFrame(), ticksPerFrame);
        EXPECT_TRUE(ReadAll(cache) == ContentsOf(spec));
      }
    }
  }
}

// An array that another channel holds is stored once where both lie in one file, and is there again
// by the index and by the records alone.
TEST_F(RoundTrip, RepeatsAcrossChannels) {
  constexpr auto kPoints = zuCacheData::eNCFloatVectorArray;
  Bytes big = MakeArray(kPoints, 1000, 1);
  for (const Form& form : kForms) {
    SCOPED_TRACE(form.Name());
    const bool single = form.format == Cache::eSingleFile;
    CacheSpec spec = form.Of({});
    spec.channels = {{"a", kPoints, 500}, {"b", kPoints}, {"s", zuCacheData::eNCFloatArray}};
    Cache cache;
    ASSERT_TRUE(WriteOpen(cache, Folder(), "c", spec) && cache.beginWriteAtTime(0));
    ASSERT_TRUE(cache.addArrayData(0, 0, big.data(), 1000) && cache.repeatArrayData(1, 0, 0, 0));
    ASSERT_TRUE(cache.beginWriteAtTime(250));
    EXPECT_FALSE(cache.repeatArrayData(2, 250, 0, 0)) << "of another type";
    EXPECT_FALSE(cache.repeatArrayData(1, 250, 0, 250)) << "of nothing";
    EXPECT_FALSE(cache.repeatArrayData(1, 250, 9, 0)) << "of no channel";
    EXPECT_FALSE(cache.repeatArrayData(1, 7, 0, 0)) << "outside its block";
    EXPECT_EQ(cache.repeatArrayData(1, 250, 0, 0), single);
    ASSERT_TRUE(cache.endFileWrite());
    spec.samples = {{0, 0, big}, {1, 0, big}};
    if (single) spec.samples.push_back({1, 250, big});
    EXPECT_TRUE(Holds("c", spec));

    const auto expectIntervals = [this] {
      Cache reader;
      unsigned int declared[2] = {};
      int held = 0;
      EXPECT_TRUE(Open(reader, "c") && reader.declaredInterval(0, declared[0]) &&
                  reader.declaredInterval(1, declared[1]) && reader.channelSamplingRate(0, held));
      EXPECT_TRUE(declared[0] == 500 && declared[1] == 0 && held == 500);
    };
    expectIntervals();
    if (!single) continue;
    Bytes bytes = test::ReadBytes(DataFile("c", form.tag));
    EXPECT_LT(bytes.size(), 2 * big.size());
    bytes.pop_back();
    test::WriteBytes(DataFile("c", form.tag), bytes);
    EXPECT_TRUE(ReadCache(Folder(), "c") == ContentsOf(spec)) << "by its records";
    expectIntervals();
  }
}

TEST_F(RoundTrip, FramesHaveFilesOfTheirOwn) {
  CacheSpec spec = Form{Cache::eFilePerFrame, "ncx"}.Of(Frames(5, 5));
  const int ticks[] = {-1, 0, 250, 500, 3125};
  for (std::size_t i = 0; i < 5; ++i) spec.samples[i].tick = ticks[i];
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  const std::vector<std::string> names = {
      "shot.xml",       "shotFrame-1Tick249.ncx", "shotFrame0.ncx",
      "shotFrame1.ncx", "shotFrame12Tick125.ncx", "shotFrame2.ncx"};
  EXPECT_EQ(test::NamesIn(folder_.path()), names);

  // Frame 0 is gone, and frame 1 stands under the name of frame 2.
  const std::string second = folder_.File("shotFrame1.ncx");
  ASSERT_EQ(std::remove(folder_.File("shotFrame0.ncx").c_str()), 0);
  ASSERT_EQ(std::rename(second.c_str(), folder_.File("shotFrame2.ncx").c_str()), 0);
  const Contents left = {{{-1, spec.samples[0].array}, {3125, spec.samples[4].array}}};
  EXPECT_TRUE(ReadCache(Folder(), "shot") == left) << "a frame fails for itself alone";
}

}  // namespace
}  // namespace kelsdk::nc
