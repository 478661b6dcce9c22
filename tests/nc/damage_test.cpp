#include <random>

#include "backends/nc/checksum.h"
#include "backends/nc/records.h"
#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

class Damage : public NcTest {
 protected:
  // Reads all that can be read; what is handed out must be what was written at that time.
  void ExpectNoWrongValue(const CacheSpec& spec, const std::string& what) {
    const auto found = ReadCache(Folder(), "shot");
    if (!found) return;
    const Contents expected = ContentsOf(spec);
    for (std::size_t channel = 0; channel < found->size() && channel < expected.size(); ++channel) {
      for (const auto& [tick, array] : (*found)[channel]) {
        const auto written = expected[channel].find(tick);
        ASSERT_TRUE(written != expected[channel].end() && written->second == array)
            << what << ": a wrong value at tick " << tick;
      }
    }
  }

  static CacheSpec Small(const char* tag) {
    CacheSpec spec;
    spec.tag = tag;
    spec.channels = {{"P", zuCacheData::eNCFloatVectorArray}, {"w", zuCacheData::eNCDoubleArray}};
    for (int frame = 0; frame < 4; ++frame) {
      spec.samples.push_back({0, frame * 250, MakeArray(spec.channels[0].type, 40, frame)});
      spec.samples.push_back({1, frame * 250, MakeArray(spec.channels[1].type, 7, frame / 2)});
    }
    return spec;
  }

  std::string DataFile(const char* tag) const { return folder_.File(std::string("shot.") + tag); }
};

TEST_F(Damage, EveryPrefix) {
  for (const char* tag : {"ncx", "ncc"}) {
    const CacheSpec spec = Small(tag);
    ASSERT_TRUE(Write(Folder(), "shot", spec));
    const Bytes whole = test::ReadBytes(DataFile(tag));
    std::size_t blocksBefore = 0;
    for (std::size_t size = 0; size < whole.size(); ++size) {
      test::WriteBytes(DataFile(tag),
                       Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
      ExpectNoWrongValue(spec, "cut at " + std::to_string(size));
      EXPECT_FALSE(Verifies("shot")) << size;
      Cache cache;
      if (!cache.initFileRead("shot", Folder().c_str())) {
        EXPECT_EQ(blocksBefore, 0u) << "opened when it was shorter";
        EXPECT_STRNE(cache.errorString(), "");
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
  for (const char* tag : {"ncx", "ncc"}) {
    const CacheSpec spec = Small(tag);
    ASSERT_TRUE(Write(Folder(), "shot", spec));
    Bytes bytes = test::ReadBytes(DataFile(tag));
    std::uniform_int_distribution<std::size_t> bits(0, 8 * bytes.size() - 1);
    for (int i = 0; i < 1000; ++i) {
      const std::size_t bit = bits(random);
      const auto mask = static_cast<std::uint8_t>(1u << bit % 8);
      bytes[bit / 8] ^= mask;
      test::WriteBytes(DataFile(tag), bytes);
      EXPECT_FALSE(Verifies("shot")) << tag << " bit " << bit;
      ExpectNoWrongValue(spec, "bit " + std::to_string(bit));
      bytes[bit / 8] ^= mask;
    }
    test::WriteBytes(DataFile(tag), bytes);
    EXPECT_TRUE(Verifies("shot"));
  }
}

TEST_F(Damage, FlippedBitsOfADescription) {
  const CacheSpec spec = Small("ncx");
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  Bytes bytes = test::ReadBytes(folder_.File("shot.xml"));
  for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
    bytes[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
    test::WriteBytes(folder_.File("shot.xml"), bytes);
    ExpectNoWrongValue(spec, "bit " + std::to_string(bit));
    bytes[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
  }
}

// Files whose checksums hold and whose content does not.
class Lies : public Damage {
 protected:
  // Rewrites the index entry of the first sample and everything that covers it.
  Bytes WithFirstEntry(const Bytes& whole, const SampleEntry& entry) {
    Bytes bytes = whole;
    std::uint8_t* const trailerBytes = bytes.data() + bytes.size() - kTrailerSize;
    Trailer trailer;
    EXPECT_TRUE(LoadTrailer(trailerBytes, &trailer));
    std::uint8_t* const directory = bytes.data() + trailer.directory;
    DirectoryEntry channel = LoadDirectoryEntry(directory);
    std::memcpy(bytes.data() + channel.indexOffset, &entry, sizeof entry);
    channel.indexChecksum =
        Checksum(bytes.data() + channel.indexOffset, channel.count * kIndexEntrySize);
    channel.first = entry.tick;
    StoreDirectoryEntry(channel, directory);
    trailer.directoryChecksum = Checksum(directory, trailer.channelCount * kDirectoryEntrySize);
    StoreTrailer(trailer, trailerBytes);
    return bytes;
  }
};

TEST_F(Lies, IndexEntries) {
  const CacheSpec spec = Small("ncc");
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  const Bytes whole = test::ReadBytes(DataFile("ncc"));
  Trailer trailer;
  ASSERT_TRUE(LoadTrailer(whole.data() + whole.size() - kTrailerSize, &trailer));
  SampleEntry sound;
  const DirectoryEntry channel = LoadDirectoryEntry(whole.data() + trailer.directory);
  std::memcpy(&sound, whole.data() + channel.indexOffset, sizeof sound);
  const struct {
    const char* why;
    void (*lie)(SampleEntry&);
  } rows[] = {
      {"past the end", [](SampleEntry& entry) { entry.offset = 1u << 20; }},
      {"offset and size wrap", [](SampleEntry& entry) { entry.offset = ~std::uint64_t{63}; }},
      {"into the header", [](SampleEntry& entry) { entry.offset = 0; }},
      {"not aligned", [](SampleEntry& entry) { entry.offset += 4; }},
      {"larger than raw", [](SampleEntry& entry) { entry.storedSize = 481; }},
      {"the largest size", [](SampleEntry& entry) { entry.storedSize = ~std::uint64_t{0}; }},
      {"too few bytes for its count", [](SampleEntry& entry) { entry.count = 0xFFFFFFFFu; }},
      {"one element more", [](SampleEntry& entry) { ++entry.count; }},
      {"a byte less", [](SampleEntry& entry) { --entry.storedSize; }},
      {"stored in nothing", [](SampleEntry& entry) { entry.storedSize = 0; }},
      {"another checksum", [](SampleEntry& entry) { ++entry.checksum; }},
      {"the array of another sample", [](SampleEntry& entry) { entry.offset += 128; }},
      {"not before its neighbour", [](SampleEntry& entry) { entry.tick = 5000; }},
  };
  for (const auto& row : rows) {
    SampleEntry entry = sound;
    row.lie(entry);
    test::WriteBytes(DataFile("ncc"), WithFirstEntry(whole, entry));
    ExpectNoWrongValue(spec, row.why);
    EXPECT_FALSE(Verifies("shot")) << row.why;
    Cache cache;
    ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str())) << row.why;
    unsigned int count = 0;
    if (cache.getArrayLengthAtTime(0, 0, count)) {
      EXPECT_LE(count * 12u, kBestCompression * whole.size()) << row.why;
    }
    EXPECT_EQ(ReadArray(cache, 0, 250), spec.samples[2].array) << row.why << ": its neighbour";
  }
}

TEST_F(Lies, TrailersAndDirectories) {
  const CacheSpec spec = Small("ncx");
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  const Bytes whole = test::ReadBytes(DataFile("ncx"));
  const struct {
    const char* why;
    void (*lie)(Trailer&);
  } rows[] = {
      {"a directory past the end", [](Trailer& trailer) { trailer.directory += 1u << 20; }},
      {"a directory that wraps", [](Trailer& trailer) { trailer.directory = ~std::uint64_t{63}; }},
      {"four billion channels", [](Trailer& trailer) { trailer.channelCount = 0xFFFFFFFFu; }},
      {"records behind the indices", [](Trailer& trailer) { trailer.dataEnd = ~std::uint64_t{0}; }},
      {"another directory", [](Trailer& trailer) { ++trailer.directoryChecksum; }},
      {"no channels", [](Trailer& trailer) { trailer.channelCount = 0; }},
  };
  for (const auto& row : rows) {
    Bytes bytes = whole;
    Trailer trailer;
    ASSERT_TRUE(LoadTrailer(whole.data() + whole.size() - kTrailerSize, &trailer));
    row.lie(trailer);
    StoreTrailer(trailer, bytes.data() + bytes.size() - kTrailerSize);
    test::WriteBytes(DataFile("ncx"), bytes);
    ExpectNoWrongValue(spec, row.why);
    EXPECT_FALSE(Verifies("shot")) << row.why;
    EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(spec)) << row.why << ": by its records";
  }
}

TEST_F(Damage, FilesOfAnotherCache) {
  CacheSpec spec = Small("ncx");
  ASSERT_TRUE(Write(Folder(), "other", Frames(4, 40, 99)));
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  test::WriteBytes(DataFile("ncx"), test::ReadBytes(folder_.File("other.ncx")));
  Cache cache;
  EXPECT_FALSE(cache.initFileRead("shot", Folder().c_str()));
  EXPECT_NE(std::string(cache.errorString()).find("another cache"), std::string::npos);
  EXPECT_EQ(cache.numChannels(), 0u);

  spec.format = Cache::eFilePerFrame;
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  CacheSpec foreign = Frames(4, 40, 99);
  foreign.format = Cache::eFilePerFrame;
  ASSERT_TRUE(Write(Folder(), "other", foreign));
  test::WriteBytes(folder_.File("shotFrame2.ncx"),
                   test::ReadBytes(folder_.File("otherFrame2.ncx")));
  EXPECT_EQ(ReadCache(Folder(), "shot")->at(0).size(), 3u);
  EXPECT_FALSE(Verifies("shot"));
}

}  // namespace
}  // namespace kelsdk::nc
