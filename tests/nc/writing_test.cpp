#include <sys/stat.h>

#include <cstdlib>

#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

using Writing = NcTest;

TEST_F(Writing, ArgumentsThatMakeNoSense) {
  const struct {
    const char* why;
    const char* base;
    const char* tag;
    int ticksPerFrame;
  } rows[] = {{"no name", "", "ncx", 250},
              {"a path for a name", "a/b", "ncx", 250},
              {"the folder itself", ".", "ncx", 250},
              {"the folder above", "..", "ncx", 250},
              {"an unknown tag", "shot", "nc", 250},
              {"no tag", "shot", nullptr, 250},
              {"time running back", "shot", "ncx", -1}};
  for (const auto& row : rows) {
    Cache cache;
    EXPECT_FALSE(cache.initFileWrite(Folder().c_str(), row.base, Cache::eSingleFile, row.tag,
                                     row.ticksPerFrame))
        << row.why;
    EXPECT_STRNE(cache.errorString(), "") << row.why;
    EXPECT_FALSE(cache.beginWriteAtTime(0)) << row.why;
  }
  Cache cache;
  EXPECT_FALSE(
      cache.initFileWrite((Folder() + "nowhere/").c_str(), "shot", Cache::eSingleFile, "ncx", 250));
  EXPECT_FALSE(cache.initFileRead("../shot", Folder().c_str()));
  EXPECT_FALSE(cache.initFileRead(nullptr, nullptr));
  EXPECT_TRUE(test::NamesIn(folder_.path()).empty());
}

TEST_F(Writing, ChannelsThatAreRefused) {
  Cache cache;
  ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", Frames(1, 3)));
  unsigned int index = 77;
  EXPECT_FALSE(cache.addChannel("P", "", zuCacheData::eNCFloatArray, index)) << "known";
  EXPECT_FALSE(cache.addChannel("", "", zuCacheData::eNCFloatArray, index)) << "empty";
  EXPECT_FALSE(cache.addChannel("Q", "", static_cast<EType>(7), index)) << "no such type";
  EXPECT_FALSE(cache.addChannel("Q", "", static_cast<EType>(-1), index)) << "no such type";
  EXPECT_FALSE(
      cache.addChannel(std::string(5000, 'x').c_str(), "", zuCacheData::eNCFloatArray, index));
  EXPECT_EQ(index, 77u);
  ASSERT_TRUE(cache.addChannel("scalar", "", zuCacheData::eNCDouble, index)) << "declared only";
  double value = 1;
  ASSERT_TRUE(cache.beginWriteAtTime(0));
  EXPECT_FALSE(cache.addArrayData(index, 0, &value, 1));
  ASSERT_TRUE(cache.endFileWrite());
  Cache again;
  ASSERT_TRUE(again.initFileRead("shot", Folder().c_str()));
  EXPECT_EQ(again.numChannels(), 2u);
  EXPECT_FALSE(again.addChannel("R", "", zuCacheData::eNCFloatArray, index)) << "reading";
  EXPECT_FALSE(again.endFileWrite());
  int tick = 5;
  EXPECT_FALSE(again.getChannelStartTime(1, tick)) << "no sample";
  EXPECT_EQ(tick, 0);
  EXPECT_TRUE(again.isChannelSamplingRegular(1));
  EXPECT_TRUE(again.channelSamplingRate(1, tick));
  EXPECT_EQ(tick, 250);
}

TEST_F(Writing, OddOrdersOfCalls) {
  for (const auto format : {Cache::eSingleFile, Cache::eFilePerFrame}) {
    CacheSpec spec = Frames(0, 0);
    spec.format = format;
    Cache cache;
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", spec));
    const EType type = zuCacheData::eNCFloatVectorArray;
    Bytes first = MakeArray(type, 10, 1);
    Bytes second = MakeArray(type, 20, 2);
    Bytes third = MakeArray(type, 5, 3);
    EXPECT_FALSE(cache.addArrayData(0, 0, first.data(), 10)) << "outside a block";
    EXPECT_TRUE(cache.endWriteAtTime()) << "without a block: nothing";
    ASSERT_TRUE(cache.beginWriteAtTime(500));
    EXPECT_FALSE(cache.addArrayData(0, 250, first.data(), 10)) << "another time";
    EXPECT_FALSE(cache.addArrayData(9, 500, first.data(), 10)) << "no such channel";
    EXPECT_FALSE(cache.addArrayData(0, 500, nullptr, 10));
    EXPECT_TRUE(cache.addArrayData(0, 500, first.data(), 10));
    EXPECT_TRUE(cache.addArrayData(0, 500, second.data(), 20)) << "replaces the first";
    ASSERT_TRUE(cache.beginWriteAtTime(250)) << "closes the block before, and goes back";
    EXPECT_TRUE(cache.addArrayData(0, 250, third.data(), 5));
    unsigned int late = 0;
    ASSERT_TRUE(cache.addChannel("late", "", type, late));
    ASSERT_TRUE(cache.beginWriteAtTime(0));
    EXPECT_TRUE(cache.addArrayData(late, 0, nullptr, 0)) << "an array of nothing";
    ASSERT_TRUE(cache.beginWriteAtTime(500)) << "a second time";
    EXPECT_TRUE(cache.addArrayData(late, 500, third.data(), 5));
    ASSERT_TRUE(cache.beginWriteAtTime(250));
    EXPECT_TRUE(cache.addArrayData(0, 250, first.data(), 10)) << "replaces the earlier";
    ASSERT_TRUE(cache.beginWriteAtTime(9999)) << "and writes nothing";
    ASSERT_TRUE(cache.endFileWrite()) << cache.errorString();
    EXPECT_FALSE(cache.endFileWrite()) << "a second time";
    EXPECT_TRUE(Verifies("shot"));
    const Contents expected = {{{250, first}, {500, second}}, {{0, {}}, {500, third}}};
    EXPECT_TRUE(ReadCache(Folder(), "shot") == expected);
  }
}

TEST_F(Writing, TheOlderCacheStandsUntilTheEndAndItsFilesGoThen) {
  CacheSpec older = Frames(10, 30);
  older.format = Cache::eFilePerFrame;
  ASSERT_TRUE(Write(Folder(), "shot", older));
  ASSERT_TRUE(Write(Folder(), "shotFrame30", Frames(2, 3)));
  const CacheSpec neighbour = Frames(2, 3);
  CacheSpec newer = Frames(3, 30, 50);
  newer.tag = "ncc";
  {
    Cache cache;
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", newer));
    EXPECT_EQ((*ReadCache(Folder(), "shot"))[0].size(), 10u);
    ASSERT_TRUE(cache.endFileWrite());
  }
  EXPECT_EQ(
      test::NamesIn(folder_.path()),
      (std::vector<std::string>{"shot.ncc", "shot.xml", "shotFrame30.ncx", "shotFrame30.xml"}));
  EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(newer));
  EXPECT_TRUE(ReadCache(Folder(), "shotFrame30") == ContentsOf(neighbour));
}

TEST_F(Writing, TheDataOfACacheOfAlikeNameIsNotOverwritten) {
  const CacheSpec neighbour = Frames(2, 3);
  ASSERT_TRUE(Write(Folder(), "shotFrame1", neighbour));
  CacheSpec frames = Frames(3, 10, 5);
  frames.format = Cache::eFilePerFrame;
  EXPECT_FALSE(Write(Folder(), "shot", frames)) << "frame 1 would go over shotFrame1.ncx";
  EXPECT_TRUE(ReadCache(Folder(), "shotFrame1") == ContentsOf(neighbour));
  EXPECT_FALSE(ReadCache(Folder(), "shot"));
  unsigned int blocks = 0;
  EXPECT_FALSE(Cache::recover(Folder().c_str(), "shot", blocks, nullptr, nullptr));
  ASSERT_EQ(std::remove(folder_.File("shotFrame1.xml").c_str()), 0);
  EXPECT_TRUE(Cache::recover(Folder().c_str(), "shot", blocks, nullptr, nullptr))
      << "nobody claims that file any more";
  EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(frames));
  EXPECT_FALSE(Write(Folder(), "shotFrame2", neighbour)) << "and the other way round";
  EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(frames));
}

TEST_F(Writing, AFullDiskKeepsTheOlderCacheAndEveryWholeBlock) {
  for (const auto format : {Cache::eSingleFile, Cache::eFilePerFrame}) {
    const CacheSpec older = Frames(3, 30);
    ASSERT_TRUE(Write(Folder(), "shot", older));
    CacheSpec newer = Frames(4, 50, 9);
    newer.format = format;
    {
      Cache cache;
      ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", newer));
      {
        test::FailSystemCall full(format == Cache::eSingleFile ? 1 : 4, ENOSPC, true);
        Bytes array = MakeArray(zuCacheData::eNCFloatVectorArray, 50, 77);
        EXPECT_TRUE(cache.beginWriteAtTime(1000));
        EXPECT_FALSE(cache.addArrayData(0, 1000, array.data(), 50) && cache.endWriteAtTime());
      }
      EXPECT_NE(std::string(cache.errorString()).find("No space left"), std::string::npos);
      EXPECT_FALSE(cache.beginWriteAtTime(1250)) << "there is room again, but a block is lost";
      EXPECT_FALSE(cache.endFileWrite());
    }
    EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(older));
    EXPECT_TRUE(Verifies("shot"));
    unsigned int blocks = 0;
    EXPECT_TRUE(Cache::recover(Folder().c_str(), "shot", blocks, nullptr, nullptr));
    EXPECT_EQ(blocks, 4u);
    EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(newer));
    std::system(("rm -rf " + Folder() + "*").c_str());
  }
}

TEST_F(Writing, RecoverTakesTheNewestAndLeavesTheLiving) {
  ASSERT_TRUE(Write(Folder(), "shot", Frames(2, 10)));
  const CacheSpec second = Frames(3, 10, 40);
  for (const CacheSpec& spec : {Frames(4, 10, 20), second, Frames(0, 0)}) {
    Cache cache;
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", spec));
  }
  Cache living;
  ASSERT_TRUE(WriteOpen(living, Folder(), "shot", Frames(1, 10, 60)));
  unsigned int blocks = 0;
  Lines said;
  EXPECT_TRUE(Cache::recover(Folder().c_str(), "shot", blocks, Lines::Add, &said)) << said.All();
  EXPECT_EQ(blocks, 3u);
  EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(second));
  EXPECT_NE(said.All().find("a living writer"), std::string::npos);
  EXPECT_FALSE(Cache::recover(Folder().c_str(), "shot", blocks, nullptr, nullptr))
      << "the first is older than what stands there now";
  EXPECT_TRUE(living.endFileWrite()) << living.errorString();
  EXPECT_EQ(test::NamesIn(folder_.path()).size(), 3u) << "a writer of nothing left something";
}

}  // namespace
}  // namespace kelsdk::nc
