#include <algorithm>
#include <random>

#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

class Damage : public NcTest {
 protected:
  // Gives the bytes of the file whose tag it is.
  Bytes WriteSmall(const std::string& tag) {
    spec_ = Form{Cache::eSingleFile, tag == "ncc" ? "ncc" : "ncx"}.Of(Frames(4, 40));
    spec_.channels.push_back({"w", zuCacheData::eNCDoubleArray});
    for (int i = 0; i < 4; ++i) {
      spec_.samples.push_back({1, i * 250, MakeArray(spec_.channels[1].type, 7, i / 2)});
    }
    path_ = folder_.File("shot." + tag);
    EXPECT_TRUE(Write(Folder(), "shot", spec_));
    return test::ReadBytes(path_);
  }

  // Gives how many samples of the first channel can be read. Whatever can must be what was written.
  std::size_t ReadableSamples() const {
    const Contents found = ReadCache(Folder(), "shot").value_or(Contents());
    const Contents written = ContentsOf(spec_);
    for (std::size_t i = 0; i < std::min(found.size(), written.size()); ++i) {
      EXPECT_TRUE(
          std::includes(written[i].begin(), written[i].end(), found[i].begin(), found[i].end()))
          << "a wrong value in channel " << i;
    }
    return found.empty() ? 0 : found[0].size();
  }

  CacheSpec spec_;
  std::string path_;
};

TEST_F(Damage, EveryPrefixGivesItsWholeBlocksAndEveryFlippedBitIsFound) {
  std::mt19937 random(11);
  for (const std::string tag : {"ncx", "ncc", "xml"}) {
    Bytes bytes = WriteSmall(tag);
    const bool isData = tag != "xml";
    for (int i = 0; i < 1000; ++i) {
      const std::size_t bit = random() % (8 * bytes.size());
      SCOPED_TRACE(tag + " bit " + std::to_string(bit));
      const auto mask = static_cast<std::uint8_t>(1u << bit % 8);
      bytes[bit / 8] ^= mask;
      test::WriteBytes(path_, bytes);
      EXPECT_FALSE(isData && Verifies("shot"));
      ReadableSamples();
      bytes[bit / 8] ^= mask;
    }
    std::size_t before = 0;
    for (std::size_t size = 0; isData && size < bytes.size(); ++size) {
      SCOPED_TRACE(tag + " cut at " + std::to_string(size));
      test::WriteBytes(path_, Bytes(bytes.data(), bytes.data() + size));
      const std::size_t readable = ReadableSamples();
      EXPECT_FALSE(Verifies("shot"));
      EXPECT_GE(readable, before) << "fewer than when it was shorter";
      before = readable;
    }
    EXPECT_EQ(before, isData ? 4u : 0u);
  }
}

}  // namespace
}  // namespace kelsdk::nc
