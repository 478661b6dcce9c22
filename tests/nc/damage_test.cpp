#include <random>

#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

class Damage : public NcTest {
 protected:
  void WriteSmall(const char* tag) {
    spec_ = Form{Cache::eSingleFile, tag}.Of({});
    spec_.channels = {{"P", zuCacheData::eNCFloatVectorArray}, {"w", zuCacheData::eNCDoubleArray}};
    for (int frame = 0; frame < 4; ++frame) {
      spec_.samples.push_back({0, frame * 250, MakeArray(spec_.channels[0].type, 40, frame)});
      spec_.samples.push_back({1, frame * 250, MakeArray(spec_.channels[1].type, 7, frame / 2)});
    }
    ASSERT_TRUE(Write(Folder(), "shot", spec_));
    dataFile_ = folder_.File(std::string("shot.") + tag);
    whole_ = test::ReadBytes(dataFile_);
  }

  // Reads all that can be read; what is handed out must be what was written at that time.
  void ExpectNoWrongValue(const std::string& what) const {
    const auto found = ReadCache(Folder(), "shot");
    if (!found) return;
    const Contents expected = ContentsOf(spec_);
    for (std::size_t channel = 0; channel < found->size() && channel < expected.size(); ++channel) {
      for (const auto& [tick, array] : (*found)[channel]) {
        const auto written = expected[channel].find(tick);
        ASSERT_TRUE(written != expected[channel].end() && written->second == array)
            << what << ": a wrong value at tick " << tick;
      }
    }
  }

  CacheSpec spec_;
  std::string dataFile_;
  Bytes whole_;
};

TEST_F(Damage, EveryPrefixGivesItsWholeBlocks) {
  for (const char* tag : {"ncx", "ncc"}) {
    WriteSmall(tag);
    std::size_t blocks = 0;
    for (std::size_t size = 0; size < whole_.size(); ++size) {
      test::WriteBytes(dataFile_, Bytes(whole_.data(), whole_.data() + size));
      ExpectNoWrongValue("cut at " + std::to_string(size));
      EXPECT_FALSE(Verifies("shot")) << size;
      const auto found = ReadCache(Folder(), "shot");
      EXPECT_TRUE(found ? (*found)[0].size() >= blocks : blocks == 0) << "fewer than when shorter";
      if (found) blocks = (*found)[0].size();
    }
    EXPECT_EQ(blocks, 4u);
  }
}

TEST_F(Damage, EveryFlippedBitIsFound) {
  std::mt19937 random(11);
  for (const char* tag : {"ncx", "ncc", "xml"}) {
    const bool isData = *tag == 'n';
    WriteSmall(isData ? tag : "ncx");
    const std::string path = folder_.File(std::string("shot.") + tag);
    Bytes bytes = test::ReadBytes(path);
    for (int i = 0; i < 1000; ++i) {
      const std::size_t bit = random() % (8 * bytes.size());
      const auto mask = static_cast<std::uint8_t>(1u << bit % 8);
      bytes[bit / 8] ^= mask;
      test::WriteBytes(path, bytes);
      EXPECT_FALSE(isData && Verifies("shot")) << tag << " bit " << bit;
      ExpectNoWrongValue("bit " + std::to_string(bit));
      bytes[bit / 8] ^= mask;
    }
    test::WriteBytes(path, bytes);
    EXPECT_TRUE(Verifies("shot"));
  }
}

TEST_F(Damage, FilesOfAnotherCache) {
  for (const auto format : {Cache::eSingleFile, Cache::eFilePerFrame}) {
    const bool isSingle = format == Cache::eSingleFile;
    const Form form = {format, "ncx"};
    const std::string name = isSingle ? ".ncx" : "Frame2.ncx";
    ASSERT_TRUE(Write(Folder(), "other", form.Of(Frames(4, 40, 99))));
    ASSERT_TRUE(Write(Folder(), "shot", form.Of(Frames(4, 40))));
    test::WriteBytes(folder_.File("shot" + name), test::ReadBytes(folder_.File("other" + name)));
    EXPECT_FALSE(Verifies("shot"));
    const auto found = ReadCache(Folder(), "shot");
    EXPECT_EQ(found ? (*found)[0].size() : 0, isSingle ? 0u : 3u) << "but for the other's frame";
  }
}

}  // namespace
}  // namespace kelsdk::nc
