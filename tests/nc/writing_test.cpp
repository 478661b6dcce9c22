#include <filesystem>

#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

using Writing = NcTest;

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
    EXPECT_EQ(ReadArray(cache, 0, 500), first);
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
  {
    Cache cache;
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", frames));
    ASSERT_TRUE(Write(Folder(), "shotFrame1", neighbour));
    EXPECT_FALSE(cache.endFileWrite()) << "frame 1 would go over shotFrame1.ncx";
    EXPECT_NE(std::string(cache.errorString()).find("shotFrame1"), std::string::npos);
  }
  EXPECT_FALSE(Write(Folder(), "shot", frames)) << "another time not even begun";
  EXPECT_EQ(test::NamesIn(folder_.path()).size(), 3u) << "the first one's remains";
  EXPECT_TRUE(Holds("shotFrame1", neighbour));
  ASSERT_EQ(std::remove(folder_.File("shotFrame1.xml").c_str()), 0);
  EXPECT_TRUE(Write(Folder(), "shot", frames)) << "nobody claims that file any more";
  EXPECT_FALSE(Write(Folder(), "shotFrame2", neighbour)) << "and the other way round";
  EXPECT_TRUE(Holds("shot", frames));

  // Only its own files go with the older cache.
  ASSERT_TRUE(Write(Folder(), "shotFrame30", neighbour));
  ASSERT_TRUE(Write(Folder(), "shot", Form{Cache::eSingleFile, "ncc"}.Of(Frames(3, 10, 5))));
  EXPECT_FALSE(test::Exists(folder_.File("shotFrame0.ncx")));
  EXPECT_TRUE(Holds("shotFrame30", neighbour));
}

TEST_F(Writing, WhatIsNoDataFileIsNotReplaced) {
  constexpr Form kFrames = {Cache::eFilePerFrame, "ncx"};
  constexpr Form kSingle = {Cache::eSingleFile, "ncx"};
  const struct {
    const char* name;
    bool isFolder;
    Form form;
    bool serves;
    unsigned int inTheWay;
  } rows[] = {{"shot.ncx", false, kSingle, false, 1},
              {"shot.ncx", true, kSingle, false, 1},
              {"shotFrame99.ncx", false, kFrames, false, 1},
              {"shotFrame-1Tick3.ncx", true, kFrames, false, 1},
              {"shot.ncx", false, kFrames, true, 1},
              {"shotFrame99.ncx", false, kSingle, true, 1},
              {"shot.ncc", false, kSingle, true, 1},
              {"shotFrameX.ncx", false, kFrames, true, 0},
              {"shot.2.ncx", false, kSingle, true, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const test::ScratchFolder scratch;
    const std::string folder = scratch.path() + "/";
    const Bytes notes = {'n', 'o'};
    const std::string path = scratch.File(row.name);
    if (row.isFolder) std::filesystem::create_directory(path);
    if (!row.isFolder) test::WriteBytes(path, notes);
    EXPECT_EQ(Cache::dataFilesInTheWay(folder.c_str(), "shot", nullptr, nullptr), row.inTheWay);
    const CacheSpec spec = row.form.Of(Frames(2, 3));
    Cache cache;
    EXPECT_EQ(WriteOpen(cache, folder, "shot", spec) && cache.endFileWrite(), row.serves);
    if (!row.serves) {
      EXPECT_EQ(std::string(cache.errorString()).find(row.name), 0u) << cache.errorString();
      EXPECT_EQ(test::NamesIn(scratch.path()).size(), 1u);
    }
    EXPECT_TRUE(row.isFolder || test::ReadBytes(path) == notes);
  }

  // What comes while it is written is found at the end.
  Cache cache;
  ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", kFrames.Of(Frames(2, 3))));
  test::WriteBytes(folder_.File("shotFrame1.ncx"), {'n'});
  EXPECT_FALSE(cache.endFileWrite());
  EXPECT_EQ(test::ReadBytes(folder_.File("shotFrame1.ncx")), Bytes{'n'});
}

}  // namespace
}  // namespace kelsdk::nc
