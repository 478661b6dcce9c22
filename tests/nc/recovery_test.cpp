#include <filesystem>

#include "backends/nc/description.h"
#include "backends/nc/names.h"
#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

namespace fs = std::filesystem;

const CacheSpec kOlder = Frames(2, 10);
const CacheSpec kDied = Frames(3, 10, 40);

class Recovery : public NcTest {
 protected:
  // A folder for each row of a table.
  void Begin() {
    said_.clear();
    fs::remove_all(folder_.path());
    fs::create_directory(folder_.path());
  }

  void Die(const CacheSpec& spec) {
    Cache cache;
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", spec)) << cache.errorString();
  }

  // The blocks that recover saved.
  unsigned int Recover(bool force = false) {
    Cache::recoverOptions options;
    options.force = force;
    unsigned int blocks = 0;
    const bool recovered =
        Cache::recover(Folder().c_str(), "shot", options, blocks, test::AddLine, &said_);
    EXPECT_EQ(recovered, blocks > 0) << said_;
    return blocks;
  }

  bool Said(const std::string& words) const { return said_.find(words) != std::string::npos; }
  unsigned int Leftovers() const {
    return Cache::leftovers(Folder().c_str(), "shot", nullptr, nullptr);
  }
  // Sets the cache "shot" back to where its description was about to be put in place.
  void TakeBackDescription() {
    Description description;
    io::Error error;
    const std::string path = folder_.File("shot.xml");
    ASSERT_TRUE(ReadDescription(path, &description, error)) << error.text();
    const std::string partial = folder_.File(PartialFolderName("shot", description.identity));
    fs::create_directory(partial);
    fs::rename(path, partial + "/shot.xml");
  }

  std::string said_;
};

TEST_F(Recovery, LosesNothingThatStands) {
  enum EStanding { eNothing, eWhole, eNoData, eOthersData, eNoHeader, eBadXml, eOtherXml };
  const struct {
    const char* why;
    EStanding standing;
    bool force;
    const char* savedAs;
    const char* keptAs;  // the base name of what stood there
  } rows[] = {
      {"nothing", eNothing, false, "shot", nullptr},
      {"nothing, by force", eNothing, true, "shot", nullptr},
      {"whole", eWhole, false, "shot.recovered2", "shot"},
      {"whole, by force", eWhole, true, "shot", "shot.before-recover2"},
      {"without its data", eNoData, false, "shot", "shot.before-recover2"},
      {"with another's data", eOthersData, false, "shot", "shot.before-recover2"},
      {"with data that is none", eNoHeader, false, "shot", "shot.before-recover2"},
      {"a damaged description", eBadXml, false, "shot", "shot.before-recover2"},
      {"another XML file", eOtherXml, false, "shot.recovered2", "shot"},
  };
  for (const Form& form : kForms) {
    for (const auto& row : rows) {
      Begin();
      SCOPED_TRACE(form.Name() + ", " + row.why);
      const bool isSingle = form.format == Cache::eSingleFile;
      const std::string ending = (isSingle ? "." : "Frame1.") + std::string(form.tag);
      for (const char* taken : {"shot.recovered", "shot.before-recover"}) {
        ASSERT_TRUE(Write(Folder(), taken, form.Of(kOlder)));
      }
      ASSERT_TRUE(row.standing == eNothing || Write(Folder(), "shot", form.Of(kOlder)));
      ASSERT_NO_FATAL_FAILURE(Die(form.Of(kDied)));
      const std::string data = folder_.File("shot" + ending);
      const std::string xml = folder_.File("shot.xml");
      const std::string other = folder_.File("shot.recovered" + ending);
      switch (row.standing) {
        case eNoData: fs::remove(data); break;
        case eOthersData: test::WriteBytes(data, test::ReadBytes(other)); break;
        case eNoHeader: test::WriteBytes(data, {'x'}); break;
        case eBadXml: fs::resize_file(xml, 60); break;
        case eOtherXml: test::WriteBytes(xml, {'<', 'a', '/', '>'}); break;
        default: break;
      }
      const Bytes oldXml = test::Exists(xml) ? test::ReadBytes(xml) : Bytes();
      const Bytes oldData = test::Exists(data) ? test::ReadBytes(data) : Bytes();
      EXPECT_EQ(Leftovers(), 1u);
      EXPECT_EQ(Recover(row.force), 3u) << said_;
      EXPECT_TRUE(Said(std::string("saved as ") + row.savedAs + ".xml")) << said_;
      EXPECT_TRUE(Holds(row.savedAs, form.Of(kDied)));
      EXPECT_TRUE(Holds("shot.recovered", form.Of(kOlder)));
      EXPECT_TRUE(Holds("shot.before-recover", form.Of(kOlder)));
      if (row.keptAs != nullptr) {
        const std::string kept = folder_.File(row.keptAs);
        EXPECT_EQ(test::ReadBytes(kept + ".xml"), oldXml);
        if (!oldData.empty()) {
          EXPECT_EQ(test::ReadBytes(kept + ending), oldData);
        }
        EXPECT_TRUE(Said(std::string(row.keptAs) + ".xml")) << said_;
      }
      EXPECT_TRUE(row.standing != eWhole || Holds(row.keptAs, form.Of(kOlder)));
      EXPECT_EQ(Leftovers(), 0u);
      EXPECT_EQ(Recover(row.force), 0u) << "only once";
    }
  }
}

TEST_F(Recovery, WhatBearsTheNamesWithoutADescription) {
  ASSERT_TRUE(Write(Folder(), "shot", kOlder));
  const Bytes orphan = test::ReadBytes(folder_.File("shot.ncx"));
  Die(kDied);
  fs::remove(folder_.File("shot.xml"));
  EXPECT_EQ(Recover(), 3u) << said_;
  EXPECT_TRUE(Holds("shot", kDied));
  EXPECT_EQ(test::ReadBytes(folder_.File("shot.before-recover.ncx")), orphan);

  Begin();  // no data file
  Die(kDied);
  test::WriteBytes(folder_.File("shot.ncx"), {'x'});
  EXPECT_EQ(Recover(true), 0u) << "not over it";
  EXPECT_EQ(Recover(), 3u) << said_;
  EXPECT_TRUE(Holds("shot.recovered", kDied));
  EXPECT_EQ(test::ReadBytes(folder_.File("shot.ncx")), Bytes{'x'});
}

TEST_F(Recovery, TakesTheNewestAndLeavesTheLiving) {
  ASSERT_TRUE(Write(Folder(), "shot", kOlder));
  const CacheSpec first = Frames(4, 10, 20);
  for (const CacheSpec& spec : {first, kDied, Frames(0, 0)}) Die(spec);
  Cache living;
  ASSERT_TRUE(WriteOpen(living, Folder(), "shot", Frames(1, 10, 60)));
  EXPECT_EQ(Leftovers(), 2u) << "the living one's is none";
  EXPECT_EQ(Recover(true), 3u) << said_;
  EXPECT_TRUE(Holds("shot", kDied));
  EXPECT_TRUE(Said("a living writer") && Said("another attempt")) << said_;
  EXPECT_EQ(Recover(true), 0u) << "the first is older than what stands there now";
  EXPECT_TRUE(Holds("shot", kDied) && Holds("shot.before-recover", kOlder));
  EXPECT_EQ(Recover(), 4u) << said_;
  EXPECT_TRUE(Holds("shot.recovered", first));
  EXPECT_TRUE(living.endFileWrite()) << living.errorString();
  EXPECT_EQ(test::NamesIn(folder_.path()).size(), 6u) << "a writer of nothing left something";
}

TEST_F(Recovery, AnAttemptWithoutAWholeBlockIsPutAway) {
  Die(Frames(3, 100));
  Die(Frames(1, 10));
  for (const auto& entry : fs::recursive_directory_iterator(folder_.path())) {
    const bool isOfSecond = entry.is_regular_file() && entry.file_size() < 1000;
    if (isOfSecond && entry.file_size() > 0) fs::resize_file(entry.path(), 100);
  }
  EXPECT_EQ(Recover(), 3u) << said_;
  EXPECT_TRUE(Said("holds no whole time block, removed")) << said_;
  EXPECT_EQ(test::NamesIn(folder_.path()).size(), 2u);
}

// The data files of the dead one are in place, its description is not.
TEST_F(Recovery, APublicationThatHadBegunGoesOn) {
  const CacheSpec other = Form{Cache::eSingleFile, "ncc"}.Of(kOlder);
  for (const bool newer : {false, true}) {
    Begin();
    SCOPED_TRACE(newer ? "a newer cache stands" : "an older cache stands");
    if (!newer) {
      ASSERT_TRUE(Write(Folder(), "shot", other));
      fs::copy(folder_.path(), folder_.path() + ".kept");
    }
    ASSERT_TRUE(Write(Folder(), "shot", kDied));
    TakeBackDescription();
    if (newer) {
      ASSERT_TRUE(Write(Folder(), "shot", other));
      EXPECT_EQ(Recover(true), 0u) << "never over a newer one";
    } else {
      fs::copy(folder_.path() + ".kept", folder_.path());
      fs::remove_all(folder_.path() + ".kept");
      Die(Frames(7, 5));
    }
    EXPECT_EQ(Recover(), 3u) << said_;
    EXPECT_TRUE(Holds(newer ? "shot.recovered" : "shot", kDied));
    EXPECT_EQ(ReadCache(Folder(), "shot") == ContentsOf(other), newer);
    EXPECT_EQ(Leftovers(), newer ? 0u : 1u);
    EXPECT_EQ(test::NamesIn(folder_.path()).size(), newer ? 4u : 3u);
  }

  Begin();  // one of its files is gone
  const CacheSpec frames = Form{Cache::eFilePerFrame, "ncx"}.Of(kDied);
  ASSERT_TRUE(Write(Folder(), "shot", frames));
  TakeBackDescription();
  fs::remove(folder_.File("shotFrame1.ncx"));
  EXPECT_EQ(Recover(), 0u);
  EXPECT_TRUE(Said("shotFrame1.ncx, which belongs to it, is gone")) << said_;
  EXPECT_EQ(test::NamesIn(folder_.path()).size(), 3u) << "left as it is";
  EXPECT_EQ(Leftovers(), 0u) << "recover would not help";
}

}  // namespace
}  // namespace kelsdk::nc
