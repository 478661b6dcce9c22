#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

class Writing : public NcTest {
 protected:
  /// The blocks that recover saved.
  unsigned int Recover() {
    unsigned int blocks = 0;
    const bool recovered = Cache::recover(Folder().c_str(), "shot", blocks, test::AddLine, &said_);
    EXPECT_EQ(recovered, blocks > 0);
    return blocks;
  }

  std::string said_;
};

TEST_F(Writing, OddOrdersOfCalls) {
  for (const auto format : {Cache::eSingleFile, Cache::eFilePerFrame}) {
    Cache cache;
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", Form{format, "ncx"}.Of(Frames(0, 0))));
    const EType type = zuCacheData::eNCFloatVectorArray;
    Bytes first = MakeArray(type, 10, 1);
    Bytes second = MakeArray(type, 20, 2);
    Bytes third = MakeArray(type, 5, 3);
    EXPECT_FALSE(cache.addArrayData(0, 0, first.data(), 10)) << "outside a block";
    EXPECT_TRUE(cache.endWriteAtTime()) << "without a block: nothing";
    ASSERT_TRUE(cache.beginWriteAtTime(500));
    EXPECT_FALSE(cache.addArrayData(0, 250, first.data(), 10)) << "another time";
    EXPECT_FALSE(cache.addArrayData(9, 500, first.data(), 10)) << "no such channel";
    EXPECT_TRUE(cache.addArrayData(0, 500, first.data(), 10));
    EXPECT_TRUE(cache.addArrayData(0, 500, second.data(), 20)) << "replaces the first";
    EXPECT_EQ(ReadArray(cache, 0, 500), second) << "in the open block";
    ASSERT_TRUE(cache.beginWriteAtTime(250)) << "closes the block before, and goes back";
    EXPECT_TRUE(cache.addArrayData(0, 250, third.data(), 5));
    unsigned int late = 0;
    for (const std::string& name : {std::string("P"), std::string(), std::string(5000, 'x')}) {
      EXPECT_FALSE(cache.addChannel(name.c_str(), "", type, late)) << name;
    }
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

TEST_F(Writing, CachesOfAlikeNameKeepTheirFiles) {
  const CacheSpec neighbour = Frames(2, 3);
  const CacheSpec frames = Form{Cache::eFilePerFrame, "ncx"}.Of(Frames(3, 10, 5));
  ASSERT_TRUE(Write(Folder(), "shotFrame1", neighbour));
  EXPECT_FALSE(Write(Folder(), "shot", frames)) << "frame 1 would go over shotFrame1.ncx";
  EXPECT_TRUE(ReadCache(Folder(), "shotFrame1") == ContentsOf(neighbour));
  EXPECT_FALSE(ReadCache(Folder(), "shot"));
  EXPECT_EQ(Recover(), 0u);
  ASSERT_EQ(std::remove(folder_.File("shotFrame1.xml").c_str()), 0);
  EXPECT_EQ(Recover(), 3u) << "nobody claims that file any more";
  EXPECT_FALSE(Write(Folder(), "shotFrame2", neighbour)) << "and the other way round";
  EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(frames));

  // Only its own files go with the older cache.
  ASSERT_TRUE(Write(Folder(), "shotFrame30", neighbour));
  ASSERT_TRUE(Write(Folder(), "shot", Form{Cache::eSingleFile, "ncc"}.Of(Frames(3, 10, 5))));
  EXPECT_FALSE(test::Exists(folder_.File("shotFrame0.ncx")));
  EXPECT_TRUE(ReadCache(Folder(), "shotFrame30") == ContentsOf(neighbour));
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
  EXPECT_EQ(Recover(), 3u) << said_;
  EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(second));
  EXPECT_NE(said_.find("a living writer"), std::string::npos);
  EXPECT_EQ(Recover(), 0u) << "the first is older than what stands there now";
  EXPECT_TRUE(living.endFileWrite()) << living.errorString();
  EXPECT_EQ(test::NamesIn(folder_.path()).size(), 3u) << "a writer of nothing left something";
}

}  // namespace
}  // namespace kelsdk::nc
