#include <random>

#include "backends/nc/checksum.h"
#include "backends/nc/records.h"
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

TEST_F(Damage, EveryPrefix) {
  for (const char* tag : {"ncx", "ncc"}) {
    WriteSmall(tag);
    std::size_t blocksBefore = 0;
    for (std::size_t size = 0; size < whole_.size(); ++size) {
      test::WriteBytes(dataFile_, Bytes(whole_.data(), whole_.data() + size));
      ExpectNoWrongValue("cut at " + std::to_string(size));
      EXPECT_FALSE(Verifies("shot")) << size;
      Cache cache;
      if (!cache.initFileRead("shot", Folder().c_str())) {
        EXPECT_EQ(blocksBefore, 0u) << "opened when it was shorter";
        continue;
      }
      const std::size_t blocks = cache.getDataCount(0);
      EXPECT_GE(blocks, blocksBefore) << "cut at " << size;
      EXPECT_EQ(ReadAll(cache)[0].size(), blocks) << "every whole block is there";
      blocksBefore = blocks;
    }
    EXPECT_EQ(blocksBefore, 4u);
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

// Files whose checksums hold and whose content does not.
TEST_F(Damage, Lies) {
  const struct {
    const char* why;
    void (*lie)(SampleEntry&, Trailer&);
  } rows[] = {
      {"past the end", [](SampleEntry& entry, Trailer&) { entry.offset = 1u << 20; }},
      {"offset and size wrap", [](SampleEntry& entry, Trailer&) { entry.offset = ~63ull; }},
      {"into the header", [](SampleEntry& entry, Trailer&) { entry.offset = 0; }},
      {"not aligned", [](SampleEntry& entry, Trailer&) { entry.offset += 4; }},
      {"larger than raw", [](SampleEntry& entry, Trailer&) { entry.storedSize = 481; }},
      {"the largest size", [](SampleEntry& entry, Trailer&) { entry.storedSize = ~0ull; }},
      {"too many elements", [](SampleEntry& entry, Trailer&) { entry.count = 0xFFFFFFFFu; }},
      {"one element more", [](SampleEntry& entry, Trailer&) { ++entry.count; }},
      {"a byte less", [](SampleEntry& entry, Trailer&) { --entry.storedSize; }},
      {"stored in nothing", [](SampleEntry& entry, Trailer&) { entry.storedSize = 0; }},
      {"another checksum", [](SampleEntry& entry, Trailer&) { ++entry.checksum; }},
      {"another sample's array", [](SampleEntry& entry, Trailer&) { entry.offset += 128; }},
      {"not before its neighbour", [](SampleEntry& entry, Trailer&) { entry.tick = 5000; }},
      {"a directory past the end", [](SampleEntry&, Trailer& end) { end.directory += 1u << 20; }},
      {"a directory that wraps", [](SampleEntry&, Trailer& end) { end.directory = ~63ull; }},
      {"4 billion channels", [](SampleEntry&, Trailer& end) { end.channelCount = 0xFFFFFFFFu; }},
      {"no channels", [](SampleEntry&, Trailer& end) { end.channelCount = 0; }},
      {"records behind the indices", [](SampleEntry&, Trailer& end) { end.dataEnd = ~0ull; }},
      {"another directory", [](SampleEntry&, Trailer& end) { ++end.directoryChecksum; }},
  };
  WriteSmall("ncc");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    Bytes bytes = whole_;
    std::uint8_t* const end = bytes.data() + bytes.size() - kTrailerSize;
    Trailer trailer;
    ASSERT_TRUE(LoadTrailer(end, &trailer));
    std::uint8_t* const directory = bytes.data() + trailer.directory;
    DirectoryEntry channel = LoadDirectoryEntry(directory);
    std::uint8_t* const index = bytes.data() + channel.indexOffset;
    SampleEntry entry;
    std::memcpy(&entry, index, sizeof entry);
    Trailer lying = trailer;
    row.lie(entry, lying);
    std::memcpy(index, &entry, sizeof entry);
    channel.indexChecksum = Checksum(index, channel.count * kIndexEntrySize);
    channel.first = entry.tick;
    StoreDirectoryEntry(channel, directory);
    // Right for what has become of the directory, unless it is what lies.
    lying.directoryChecksum +=
        Checksum(directory, trailer.channelCount * kDirectoryEntrySize) - trailer.directoryChecksum;
    StoreTrailer(lying, end);
    test::WriteBytes(dataFile_, bytes);

    ExpectNoWrongValue(row.why);
    EXPECT_FALSE(Verifies("shot"));
    Cache cache;
    ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
    unsigned int count = 0;
    if (cache.getArrayLengthAtTime(0, 0, count)) {
      EXPECT_LE(count * 12u, kBestCompression * whole_.size());
    }
    EXPECT_EQ(ReadArray(cache, 0, 250), spec_.samples[2].array) << "its neighbour";
  }
}

TEST_F(Damage, FilesOfAnotherCache) {
  for (const auto format : {Cache::eSingleFile, Cache::eFilePerFrame}) {
    const Form form = {format, "ncx"};
    const std::string name = format == Cache::eSingleFile ? ".ncx" : "Frame2.ncx";
    ASSERT_TRUE(Write(Folder(), "other", form.Of(Frames(4, 40, 99))));
    ASSERT_TRUE(Write(Folder(), "shot", form.Of(Frames(4, 40))));
    test::WriteBytes(folder_.File("shot" + name), test::ReadBytes(folder_.File("other" + name)));
    EXPECT_FALSE(Verifies("shot"));
    Cache cache;
    EXPECT_EQ(cache.initFileRead("shot", Folder().c_str()), format == Cache::eFilePerFrame);
    if (format == Cache::eFilePerFrame) {
      EXPECT_EQ(ReadAll(cache)[0].size(), 3u);
    } else {
      EXPECT_NE(std::string(cache.errorString()).find("another cache"), std::string::npos);
    }
  }
}

}  // namespace
}  // namespace kelsdk::nc
