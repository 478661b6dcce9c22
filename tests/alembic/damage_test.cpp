#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "backends/AlembicInterface.h"
#include "tests/alembic/ogawa_writer.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {
namespace {

using alembic::test::OgawaWriter;

struct Outcome {
  bool opened = false;
  bool sound = false;
  int channels = 0;
  std::string words;  // the error of a refused file, else what Verify reported
};

// Opens an archive and uses all of it, whatever state it is in.
Outcome UseAll(const std::string& path) {
  Outcome outcome;
  const auto before = ::mallinfo2();
  AlembicInterface archive(true);
  outcome.opened = archive.Open(path.c_str(), 1);
  const auto after = ::mallinfo2();
  const std::size_t held = after.uordblks + after.hblkhd - before.uordblks - before.hblkhd;
  EXPECT_LE(held, 20 * std::filesystem::file_size(path) + 100'000);
  outcome.channels = archive.GetNumChannels();
  if (!outcome.opened) {
    outcome.words = archive.GetErrorString();
    EXPECT_NE(outcome.words, "");
    EXPECT_EQ(outcome.channels, 0);
    return outcome;
  }
  for (unsigned int i = 0; i < static_cast<unsigned int>(outcome.channels); ++i) {
    AlembicChannelInfo info;
    KelTime start;
    KelTime end;
    EXPECT_TRUE(archive.GetChannelInfo(i, info)) << archive.GetErrorString();
    EXPECT_TRUE(archive.GetChannelStartEnd(i, start, end));
    const unsigned int count = std::min(archive.GetChannelBufferLength(i), 1000u);
    std::vector<float> values(std::size_t{count} * archive.GetChannelDataLength(i));
    archive.GetChannelBuffer(i, values.data(), count, start);
    archive.GetChannelBuffer(i, values.data(), count, end);
  }
  const auto collect = [](void* context, const char* line) {
    static_cast<std::string*>(context)->append(line).append("\n");
  };
  outcome.sound = archive.Verify(collect, &outcome.words);
  archive.ListTree(nullptr, nullptr);
  return outcome;
}

class AlembicDamage : public FileTest {
 protected:
  std::string Path() const { return folder_.File("damaged.abc"); }
  Outcome UseBytes(const Bytes& bytes) {
    // A new file each time: some file systems flush one that is cut and written again.
    std::filesystem::remove(Path());
    WriteBytes(Path(), bytes);
    return UseAll(Path());
  }
};

// tiny.abc, one field changed at a time: refused, or noticed by Verify while the rest stays.
const struct {
  const char* why;
  std::size_t offset;
  std::size_t width;
  std::uint64_t value;
  std::ptrdiff_t channels;  // -1: refused at open
  const char* words;
} kOneField[] = {
    {"another signature", 0, 1, 'o', -1, "not an Alembic archive"},
    {"never finished", 5, 1, 0, -1, "not finished"},
    {"version of the future", 7, 1, 2, -1, "version 2"},
    {"no root", 8, 8, 0, -1, "root group has 0 slots"},
    {"root is a block", 8, 8, 0x80000000000002c1, -1, "is a block"},
    {"root at the last byte", 8, 8, 0x2f8, -1, "cut short: the root group lies at 760 of 761"},
    {"root beyond every file", 8, 8, 0x7fffffffffffffff, -1, "lies at"},
    {"layout version 1", 0x18, 4, 1, -1, "layout version 1"},
    {"library too old", 0x24, 4, 9998, -1, "9998"},
    {"version of three bytes", 0x10, 8, 3, -1, "3 bytes"},
    {"root of five slots", 0x2c1, 8, 5, -1, "5 slots"},
    {"root count wraps", 0x2c1, 8, 0x2000000000000001, -1, "slots, the file holds"},
    {"times claim 2^32 - 1", 0x280, 4, 0xffffffff, -1, "4294967295 times"},
    {"times cut short", 0x26c, 8, 0x2f, -1, "7 bytes are left"},
    {"metadata entry too long", 0x2ac, 1, 0x15, -1, "metadata table"},
    {"top object is a block", 0x2d9, 8, 0x8000000000000206, 0, "is a block"},
    {"child lists its parent", 0x216, 8, 0x206, 0, "listed twice"},
    {"child outside the file", 0x216, 8, 0x2f9, 0, "lies at"},
    {"child has the empty group", 0x216, 8, 0, 0, "is empty"},
    {"child headers shorter than hashes", 0x1d6, 8, 31, 0, "1 slots for children"},
    {"child name too long", 0x1de, 4, 0xfffffff0, 0, "1 slots for children"},
    {"child name of length 0", 0x1de, 4, 0, 0, "a name is empty"},
    {"child name with a slash", 0x1e2, 1, '/', 0, "holds '/'"},
    {"child metadata unknown", 0x1e5, 1, 9, 2, "metadata that the archive does not have"},
    {"property headers one byte short", 0x172, 8, 27, 2, "more than 2 whole headers"},
    {"width code 3", 0x17a, 4, 0x001033ae, 0, "more than 0 whole headers"},
    {"plain type 14", 0x17a, 4, 0x001033e2, 1, "plain type 14"},
    {"extent 0", 0x17a, 4, 0x001003a2, 1, "elements of 0 values"},
    {"sampling 9", 0x181, 1, 9, 1, "time sampling 9"},
    {"first above last", 0x17f, 1, 4, 1, "from sample 4 to 3"},
    {"last beyond the samples", 0x180, 1, 4, 1, "to 4 of 4"},
    {"more samples than slots", 0x17f, 1, 1, 2, "8 slots for samples are needed, 6"},
    {"samples are a block", 0x19e, 8, 0x8000000000000112, 1, "no list of them"},
    {"samples missing", 0x19e, 8, 0, 1, "no list of them"},
    {"sample is a group", 0x11a, 8, 0x28, 2, "sample 0 of 3: a sample is a group"},
    {"dimensions are a group", 0x122, 8, 0, 2, "dimensions of a sample are a group"},
    {"sample beyond the file", 0x28, 8, 0x2ca, 2, "claims 714 bytes"},
    {"sample size wraps", 0x28, 8, 0xfffffffffffffff8, 2, "are left"},
    {"sample shorter than its key", 0x28, 8, 15, 2, "no room for its key"},
    {"sample of a piece of an element", 0x28, 8, 0x1b, 2, "elements are of 12"},
    {"scalar one byte short", 0x4c, 8, 0x13, 2, "a scalar of 3 bytes"},
    {"dimensions of all memory", 0xe2, 8, 0x4000000000000000, 2, "more strings claimed"},
    {"string without its end", 0xd9, 1, 'x', 2, "no end"},
    {"dimensions of more strings", 0xe2, 8, 4, 2, "4 strings claimed, 3"},
    {"period is zero", 0x290, 8, 0, 0, "time sampling 1"},
    {"start is infinite", 0x29c, 8, 0x7ff0000000000000, 0, "time sampling 1"},
    {"acyclic with one time", 0x290, 8, 0x7f9fffffffffffff, 2, "4 samples, times for 1"},
};

TEST_F(AlembicDamage, OneFieldIsRefusedOrReported) {
  const Bytes sound = ReadBytes(TestData("abc/tiny.abc"));
  ASSERT_TRUE(UseBytes(sound).sound);
  for (const auto& row : kOneField) {
    Bytes bytes = sound;
    std::memcpy(&bytes[row.offset], &row.value, row.width);
    const Outcome outcome = UseBytes(bytes);
    EXPECT_EQ(outcome.opened, row.channels >= 0) << row.why << ": " << outcome.words;
    EXPECT_EQ(outcome.channels, std::max<std::ptrdiff_t>(row.channels, 0)) << row.why;
    EXPECT_FALSE(outcome.sound) << row.why;
    EXPECT_NE(outcome.words.find(row.words), std::string::npos) << row.why << ": " << outcome.words;
  }
}

TEST_F(AlembicDamage, EveryPrefixIsRefused) {
  const Bytes bytes = ReadBytes(TestData("abc/cyclic_3.abc"));
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    ASSERT_FALSE(UseBytes({bytes.begin(), bytes.begin() + static_cast<long>(size)}).opened) << size;
  }
}

TEST_F(AlembicDamage, AnyChangedByteIsSurvived) {
  const Bytes sound = ReadBytes(TestData("abc/tiny.abc"));
  for (std::size_t at = 0; at < sound.size(); ++at) {
    for (const int value : {0, 1, 0x7f, 0x80, 0xff, sound[at] ^ 1, sound[at] + 1}) {
      Bytes bytes = sound;
      bytes[at] = static_cast<std::uint8_t>(value);
      UseBytes(bytes);
    }
  }
}

TEST_F(AlembicDamage, AnHdf5ArchiveIsRefusedInWords) {
  Bytes shifted = ReadBytes(TestData("abc/hdf5_backed.abc"));
  const Outcome outcome = UseAll(TestData("abc/hdf5_backed.abc"));
  EXPECT_FALSE(outcome.opened);
  EXPECT_NE(outcome.words.find("HDF5"), std::string::npos) << outcome.words;
  shifted.insert(shifted.begin(), 1024, 0);
  EXPECT_NE(UseBytes(shifted).words.find("HDF5"), std::string::npos);
}

// An object that lists the next group twice, which does the same, and so on: 2^60 objects.
void WriteSharedGroups(OgawaWriter& out) {
  std::uint64_t object = out.Object(0, {});
  for (int i = 0; i < 60; ++i) object = out.Object(0, {{"a", "", object}, {"b", "", object}});
  out.Finish(object);
}

// Each word of one large group is itself the count of a group that reaches to its end.
void WriteOverlappingGroups(OgawaWriter& out) {
  std::string headers;
  for (int i = 0; i < 4000; ++i) headers.append("\x01\0\0\0a\0", 6);
  headers.append(32, '\0');
  const std::uint64_t headerSlot = out.Data(headers);
  std::vector<std::uint64_t> slots = {0};
  const std::uint64_t first = out.Position();
  for (std::uint64_t i = 0; i < 4000; ++i) slots.push_back(first + 8 * i);
  slots.push_back(headerSlot);
  out.Finish(out.Group(slots));
}

void WriteSharedSamples(OgawaWriter& out) {
  const float point[3] = {};
  const std::uint64_t block = out.Sample(point, sizeof point);
  const std::uint64_t list = out.ArraySamples(std::vector<std::uint64_t>(5000, block));
  std::vector<OgawaWriter::PropertySpec> properties;
  for (int i = 0; i < 2000; ++i) {
    properties.push_back({.name = std::to_string(i), .sampleCount = 5000, .slot = list});
  }
  out.Finish(out.Object(out.Compound(properties), {}));
}

// No fault: a constant may claim any number of samples.
void WriteLongConstant(OgawaWriter& out) {
  const float value = 4;
  const std::uint64_t list = out.ArraySamples({out.Sample(&value, sizeof value)});
  const OgawaWriter::PropertySpec spec = {
      .name = "v", .sampleCount = 0xffffffff, .constant = true, .slot = list};
  out.Finish(out.Object(out.Compound({spec}), {}));
}

TEST_F(AlembicDamage, NothingUnfoldsToMoreThanTheFileHolds) {
  const struct {
    void (*write)(OgawaWriter& out);
    bool sound;
    const char* words;
  } rows[] = {{WriteSharedGroups, false, "listed twice"},
              {WriteOverlappingGroups, false, ""},
              {WriteSharedSamples, false, "more than the file can hold"},
              {WriteLongConstant, true, ""}};
  for (const auto& row : rows) {
    OgawaWriter out(Path());
    row.write(out);
    const Outcome outcome = UseAll(Path());
    EXPECT_EQ(outcome.sound, row.sound) << row.words << ": " << outcome.words;
    EXPECT_NE(outcome.words.find(row.words), std::string::npos) << row.words;
  }
}

TEST_F(AlembicDamage, DepthIsNoDanger) {
  constexpr int kDepth = 10'000;
  OgawaWriter out(Path());
  const float value = 4;
  const std::uint64_t list = out.ArraySamples({out.Sample(&value, sizeof value)});
  std::uint64_t compound = out.Compound({{.name = "v", .sampleCount = 1, .slot = list}});
  for (int i = 0; i < kDepth; ++i) {
    compound = out.Compound({{.name = "c", .kind = 0, .slot = compound}});
  }
  std::uint64_t object = out.Object(compound, {});
  std::string name;
  for (int i = 0; i < kDepth; ++i) {
    object = out.Object(0, {{"o", "", object}});
    name += "/o";
  }
  out.Finish(object);
  EXPECT_TRUE(UseAll(Path()).sound);
  for (int i = 0; i < kDepth; ++i) name += "/c";
  AlembicInterface archive(true);
  unsigned int channel = 9;
  float read = 0;
  ASSERT_TRUE(archive.Open(Path().c_str(), 1));
  EXPECT_TRUE(archive.GetChannelIdFromName((name + "/v").c_str(), channel) && channel == 0);
  EXPECT_TRUE(archive.GetChannelBuffer(0, &read, 1, KelTime()) && read == 4);
}

// What a call answers when its n-th allocation or system call fails: an error, or the truth.
void UseWithFailures(const std::string& path) {
  AlembicInterface archive(true);
  if (!archive.Open(path.c_str(), 1)) {
    EXPECT_STRNE(archive.GetErrorString(), "");
    return;
  }
  unsigned int channel = 1;
  AlembicChannelInfo info;
  EXPECT_EQ(archive.GetNumChannels(), 2);
  EXPECT_TRUE(!archive.GetChannelIdFromName("/dot/P", channel) || channel == 0);
  if (archive.GetChannelInfo(0, info)) {
    EXPECT_STREQ(info.name, "/dot/P");
    EXPECT_STREQ(info.type, "float32[3]");
  }
  // What failed works when asked again.
  const unsigned int length = archive.GetChannelBufferLength(0);
  EXPECT_EQ(length != 0 ? length : archive.GetChannelBufferLength(0), 2u);
  float values[6] = {};
  const KelTime end = KelTime::FromSeconds(9);
  EXPECT_TRUE(archive.GetChannelBuffer(0, values, 2, end) ||
              archive.GetChannelBuffer(0, values, 2, end));
  EXPECT_EQ(values[5], 6);
  archive.ListTree([](void*, const char*) {}, nullptr);
  archive.Verify([](void*, const char*) {}, nullptr);
}

TEST_F(AlembicDamage, FailuresInTurnAreErrors) {
  const std::string path = TestData("abc/tiny.abc");
  EXPECT_GT(FailEachAllocation([&] { UseWithFailures(path); }), 50u);
  EXPECT_GT(FailEachSystemCall([&] { UseWithFailures(path); }), 4u);
}

TEST_F(AlembicDamage, AFileCutShortWhileOpenIsAnError) {
  WriteBytes(Path(), ReadBytes(TestData("abc/mesh_ntsc.abc")));
  AlembicInterface archive(true);
  ASSERT_TRUE(archive.Open(Path().c_str(), 1));
  const unsigned int count = archive.GetChannelBufferLength(0);
  std::vector<float> values(std::size_t{count} * 3);
  const KelTime end = KelTime::FromSeconds(99);
  ASSERT_TRUE(archive.GetChannelBuffer(0, values.data(), count, end));
  std::filesystem::resize_file(Path(), 3000);
  EXPECT_FALSE(archive.GetChannelBuffer(0, values.data(), count, end));
  EXPECT_NE(std::string(archive.GetErrorString()).find("the file ends"), std::string::npos)
      << archive.GetErrorString();
}

}  // namespace
}  // namespace kelsdk::test
