// Files whose bytes have changed, with checksums that tell it and with ones that hold: indices that
// are missing, out of order or at odds with the records.
#include <algorithm>
#include <functional>
#include <random>

#include "backends/nc/checksum.h"
#include "backends/nc/records.h"
#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

constexpr auto kPoints = zuCacheData::eNCFloatVectorArray;
constexpr auto kScalars = zuCacheData::eNCFloatArray;

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

// The bytes of a data file, to be changed so that all checksums hold.
class File {
 public:
  explicit File(std::string path) : path_(std::move(path)), bytes_(test::ReadBytes(path_)) {
    EXPECT_TRUE(LoadTrailer(&bytes_[bytes_.size() - kTrailerSize], &trailer));
    for (std::uint32_t i = 0; i < trailer.channelCount; ++i) {
      directory.push_back(LoadDirectoryEntry(&bytes_[trailer.directory + i * kDirectoryEntrySize]));
    }
  }

  // Changes the n-th record of a kind.
  void EditRecord(ERecordKind kind, int n, const std::function<void(RecordHeader&)>& edit) {
    RecordHeader record;
    for (std::uint64_t at = kHeaderSize; at < trailer.dataEnd;) {
      ASSERT_TRUE(LoadRecordHeader(&bytes_[at], &record));
      const bool hasPayload = record.kind == eArrayRecord || record.kind == eChannelRecord;
      if (record.kind == kind && n-- == 0) {
        edit(record);
        return StoreRecordHeader(record, &bytes_[at]);
      }
      at = AlignUp(at + kRecordHeaderSize + (hasPayload ? record.storedSize : 0));
    }
    FAIL() << "no such record";
  }

  SampleEntry* Index(std::uint32_t channel) {
    return reinterpret_cast<SampleEntry*>(&bytes_[directory[channel].indexOffset]);
  }

  // With the checksums of what has changed. Without its trailer the file is read by its records.
  void Store(bool withTrailer = true) {
    for (std::uint32_t i = 0; i < directory.size(); ++i) {
      const std::size_t size = directory[i].samples.count * kIndexEntrySize;
      directory[i].indexChecksum = Checksum(&bytes_[directory[i].indexOffset], size);
      StoreDirectoryEntry(directory[i], &bytes_[trailer.directory + i * kDirectoryEntrySize]);
    }
    trailer.directoryChecksum =
        Checksum(&bytes_[trailer.directory], directory.size() * kDirectoryEntrySize);
    StoreTrailer(trailer, &bytes_[bytes_.size() - kTrailerSize]);
    Bytes stored = bytes_;
    if (!withTrailer) stored.resize(stored.size() - kTrailerSize);
    test::WriteBytes(path_, stored);
  }

  Trailer trailer;
  std::vector<DirectoryEntry> directory;

 private:
  std::string path_;
  Bytes bytes_;
};

class Index : public NcTest {
 protected:
  // Ticks out of order and written twice, arrays that repeat, and two channels of equal ones.
  CacheSpec WriteOdd(const char* tag) {
    CacheSpec spec = Form{Cache::eSingleFile, tag}.Of({});
    spec.channels = {{"a", kPoints}, {"b", kPoints}};
    const int ticks[] = {500, 0, 250, 500, 1000, 750};
    const int seeds[] = {1, 1, 2, 3, 3, 4};
    for (std::size_t i = 0; i < std::size(ticks); ++i) {
      spec.samples.push_back({0, ticks[i], MakeArray(kPoints, 40, seeds[i])});
      if (i % 2 == 0) spec.samples.push_back({1, ticks[i], MakeArray(kPoints, 40, 1)});
    }
    EXPECT_TRUE(Write(Folder(), "shot", spec));
    return spec;
  }
};

// Records whose checksums hold and which still cannot be. The file is read up to the last time
// block before them.
TEST_F(Index, RecordsThatCannotBeEndTheScan) {
  const struct {
    const char* why;
    ERecordKind kind;
    int record;
    std::function<void(RecordHeader&)> edit;
    std::size_t blocks;  // that are left
  } rows[] = {
      {"nothing is wrong", eBlockEndRecord, 0, [](auto&) {}, 6},
      {"a block counts an array too many", eBlockEndRecord, 2, [](auto& r) { ++r.count; }, 2},
      {"a block counts none", eBlockEndRecord, 2, [](auto& r) { r.count = 0; }, 2},
      {"a block of another time", eBlockEndRecord, 1, [](auto& r) { ++r.tick; }, 1},
      {"an array of another time", eArrayRecord, 4, [](auto& r) { ++r.tick; }, 5},
      {"an array of no channel", eArrayRecord, 4, [](auto& r) { r.channel = 2; }, 5},
      {"an array of another type", eArrayRecord, 4, [](auto& r) { r.type = kScalars; }, 5},
      {"a repeat of another size", eRepeatRecord, 0, [](auto& r) { ++r.count; }, 1},
      {"a repeat stored in another size", eRepeatRecord, 0, [](auto& r) { --r.storedSize; }, 1},
      {"a repeat of other values", eRepeatRecord, 0, [](auto& r) { ++r.checksum; }, 1},
      {"a repeat of the middle of an array", eRepeatRecord, 0,
       [](auto& r) { r.payloadOffset += kAlignment; }, 1},
      {"a repeat of what comes after it", eRepeatRecord, 0,
       [](auto& r) { r.payloadOffset += 0x1000; }, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    CacheSpec spec = WriteOdd("ncx");
    File file(DataFile("shot", spec.tag));
    file.EditRecord(row.kind, row.record, row.edit);
    file.Store();
    EXPECT_EQ(bool(Verifies("shot")), row.blocks == 6);
    file.Store(false);
    // What was written up to the block that the scan ends at: 2 arrays in every other block.
    spec.samples.resize((3 * row.blocks + 1) / 2);
    EXPECT_TRUE(ReadCache(Folder(), "shot") == ContentsOf(spec));
  }
}

// Indices whose checksums hold. What breaks their own order is not believed, and the records
// answer; what contradicts the records alone shows when they are compared.
TEST_F(Index, IsHeldToItsOrderAndToTheRecords) {
  const struct {
    const char* why;
    std::function<void(File&)> edit;
    bool readsRight;
  } rows[] = {
      {"two entries in the wrong order", [](auto& f) { std::swap(f.Index(0)[1], f.Index(0)[2]); },
       true},
      {"another first time", [](auto& f) { ++f.directory[0].samples.first; }, true},
      {"an array where the records have ended",
       [](auto& f) { f.Index(0)[1].offset = f.trailer.dataEnd; }, true},
      {"an entry less",
       [](auto& f) {
         f.directory[0].samples.last = f.Index(0)[--f.directory[0].samples.count - 1].tick;
       },
       false},
      {"a time between its neighbours", [](auto& f) { ++f.Index(0)[1].tick; }, false},
      {"the array of another time",
       [](auto& f) {
         const int tick = f.Index(0)[0].tick;
         f.Index(0)[0] = f.Index(0)[1];
         f.Index(0)[0].tick = tick;
       },
       false},
      {"an interval that is none", [](auto& f) { f.directory[1].samples.interval = 250; }, true},
      {"an interval that nobody declared", [](auto& f) { f.directory[0].declared = 250; }, true},
      {"a block more", [](auto& f) { ++f.trailer.blockCount; }, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const CacheSpec spec = WriteOdd("ncx");
    File file(DataFile("shot", spec.tag));
    row.edit(file);
    file.Store();
    EXPECT_FALSE(Verifies("shot"));
    EXPECT_EQ(ReadCache(Folder(), "shot") == ContentsOf(spec), row.readsRight);
  }
}

}  // namespace
}  // namespace kelsdk::nc
