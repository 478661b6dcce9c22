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

// The data files of the dead one are in place, its description is not.
TEST_F(Recovery, APublicationThatHadBegun) {
  const CacheSpec other = Form{Cache::eSingleFile, "ncc"}.Of(kOlder);
  ASSERT_TRUE(Write(Folder(), "shot", kDied));
  TakeBackDescription();
  Die(Frames(7, 5));
  EXPECT_EQ(Recover(), 3u) << said_;
  EXPECT_TRUE(Holds("shot", kDied)) << "goes on";
  EXPECT_EQ(Leftovers(), 1u);

  Begin();
  ASSERT_TRUE(Write(Folder(), "shot", kDied));
  TakeBackDescription();
  ASSERT_TRUE(Write(Folder(), "shot", other));
  EXPECT_EQ(Recover(true), 0u) << "never over a newer one";
  EXPECT_EQ(Recover(), 3u) << said_;
  EXPECT_TRUE(Holds("shot.recovered", kDied) && Holds("shot", other));
  EXPECT_EQ(Leftovers(), 0u);

  Begin();  // one of its files is gone
  ASSERT_TRUE(Write(Folder(), "shot", Form{Cache::eFilePerFrame, "ncx"}.Of(kDied)));
  TakeBackDescription();
  fs::remove(folder_.File("shotFrame1.ncx"));
  EXPECT_EQ(Recover(), 0u);
  EXPECT_NE(said_.find("shotFrame1.ncx, which belongs to it, is gone"), said_.npos) << said_;
  EXPECT_EQ(test::NamesIn(folder_.path()).size(), 3u) << "left as it is";
  EXPECT_EQ(Leftovers(), 0u) << "recover would not help";
}

}  // namespace
}  // namespace kelsdk::nc
