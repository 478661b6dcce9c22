#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>

#include "backends/AlembicInterface.h"
#include "tests/alembic/ogawa_writer.h"
#include "tests/support/fixture.h"

#ifdef KELCACHE_WITH_HDF5
// What libhdf5 does not free of damaged files is not ours to free.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libhdf5";
}
#endif

namespace kelsdk::test {
namespace {

using alembic::test::OgawaWriter;

struct Outcome {
  std::optional<int> channels;  // none: refused at open
  bool sound = false;
  std::string words;  // the error of a refused file, else what Verify reported
};

// Opens an archive and uses all of it, whatever state it is in.
Outcome UseAll(const std::string& path, double heldBesides = 100'000) {
  Outcome outcome;
  const auto before = ::mallinfo2();
  AlembicInterface archive(true);
  const bool opened = archive.Open(path.c_str(), 1);
  const auto after = ::mallinfo2();
  // Of signed size: libhdf5 may give back what it has kept.
  const double held = double(after.uordblks) + double(after.hblkhd) - double(before.uordblks) -
                      double(before.hblkhd);
  EXPECT_LE(held, 20 * double(std::filesystem::file_size(path)) + heldBesides);
  if (!opened) {
    outcome.words = archive.GetErrorString();
    EXPECT_NE(outcome.words, "");
    return outcome;
  }
  outcome.channels = archive.GetNumChannels();
  for (unsigned int i = 0; i < static_cast<unsigned int>(*outcome.channels); ++i) {
    KelTime start;
    KelTime end;
    EXPECT_TRUE(archive.GetChannelStartEnd(i, start, end));
    const unsigned int count = std::min(archive.GetChannelBufferLength(i), 1000u);
    std::vector<float> values(std::size_t{count} * archive.GetChannelDataLength(i));
    archive.GetChannelBuffer(i, values.data(), count, start);
    archive.GetChannelBuffer(i, values.data(), count, end);
  }
  outcome.sound = archive.Verify(AddLine, &outcome.words);
  archive.ListTree(nullptr, nullptr);
  return outcome;
}

struct OneField {
  const char* why;
  std::size_t offset, width;
  std::uint64_t value;
  std::optional<int> channels;  // none: refused at open
  const char* words;
};

class AlembicDamage : public FileTest {
 protected:
  std::string Path() const { return folder_.File("damaged.abc"); }
  Outcome UseBytes(const Bytes& bytes) {
    // A new file each time: some file systems flush one that is cut and written again.
    std::filesystem::remove(Path());
    WriteBytes(Path(), bytes);
    return UseAll(Path(), heldBesides_);
  }
  void ChangeOneField(const Bytes& sound, const OneField& row) {
    SCOPED_TRACE(row.why);
    Bytes bytes = sound;
    ASSERT_TRUE(UseBytes(bytes).sound);
    std::memcpy(&bytes[row.offset], &row.value, row.width);
    const Outcome outcome = UseBytes(bytes);
    EXPECT_EQ(outcome.channels, row.channels);
    EXPECT_FALSE(outcome.sound);
    EXPECT_NE(outcome.words.find(row.words), std::string::npos) << outcome.words;
  }

  double heldBesides_ = 100'000;
};

// tiny.abc, one field changed at a time: refused, or noticed by Verify while the rest stays.
const OneField kOneField[] = {
    {"another signature", 0, 1, 'o', {}, "not an Alembic archive"},
    {"never finished", 5, 1, 0, {}, "not finished"},
    {"version of the future", 7, 1, 2, {}, "version 2"},
    {"library too old", 0x24, 4, 9998, {}, "9998"},
    {"root count wraps", 0x2c1, 8, 0x2000000000000001, {}, "slots, the file holds"},
    {"child lists its parent", 0x216, 8, 0x206, 0, "listed twice"},
    {"plain type 14", 0x17a, 4, 0x001033e2, 1, "plain type 14"},
    {"sample size wraps", 0x28, 8, 0xfffffffffffffff8, 2, "are left"},
    {"sample of a piece of an element", 0x28, 8, 0x1b, 2, "elements are of 12"},
    {"dimensions of all memory", 0xe2, 8, 0x4000000000000000, 2, "more strings claimed"},
    {"period is zero", 0x290, 8, 0, 0, "time sampling 1"},
};

#ifdef KELCACHE_WITH_HDF5
// The same of the other container. libhdf5 would go beyond its memory, or round in circles.
const OneField kOneFieldOfHdf5[] = {
    {"end beyond the file", 0x28, 8, 0x2000, {}, "cut short: 6280 of 8192"},
    {"addresses of 4 bytes", 0x0d, 1, 4, {}, "superblock as no writer"},
    {"root beyond the end", 0x40, 8, 0x1888, {}, "header at 6280 is none"},
    {"header that goes on forever", 0x80, 8, ~std::uint64_t{0}, {}, "18446744073709551615 bytes"},
    {"header that goes on with nothing", 0x80, 8, 0, {}, "piece without a message"},
    {"header that goes on in itself", 0x878, 8, 0x870, 0, "shares its place"},
    {"header that is longer than its messages", 0x80, 8, 0xc4, {}, "ends within a message"},
    {"message longer than its header", 0x33a, 2, 0xfff8, {}, "less than a message claims"},
    {"attribute's name without an end", 0x342, 2, 11, {}, "damaged attribute"},
    {"attribute's type of three bytes", 0x344, 2, 3, {}, "damaged attribute"},
    {"attribute's space of all memory", 0x346, 2, 0xffff, {}, "damaged attribute"},
    {"attribute of 1000 values", 0x370, 8, 1000, {}, "damaged attribute"},
    {"attribute whose size wraps", 0x370, 8, std::uint64_t{1} << 62, {}, "damaged attribute"},
    {"heap beyond the end", 0x2b0, 8, 0x10000, {}, "a heap of names takes"},
    {"free names in a circle", 0x2d8, 8, 0x10, {}, "heap of names at 680 is damaged"},
    {"name beyond its heap", 0x4d8, 8, 0x58, {}, "symbol table at 1232 is damaged"},
    {"tree of another height", 0x8d, 1, 1, {}, "a tree"},
    {"link's name longer than it", 0x4aa, 1, 200, 0, "damaged link"},
    {"type within types", 0x948, 2, 0xff16, 2, "damaged data type"},
    {"fill value of 4 GB", 0x968, 8, 0xffffffff00002003, 2, "damaged fill value"},
    {"chunks of no length", 0x979, 1, 2, 2, "damaged layout"},
};
#endif

TEST_F(AlembicDamage, FieldsAreRefusedOrReportedAndAnyBytesSurvived) {
  const Bytes sound = ReadBytes(TestData("abc/tiny.abc"));
  for (const OneField& row : kOneField) ChangeOneField(sound, row);
  for (std::size_t at = 0; at < sound.size(); ++at) {
    EXPECT_FALSE(UseBytes({sound.data(), sound.data() + at}).channels) << "cut at " << at;
    for (const int value : {0, 1, 0x7f, 0x80, 0xff, sound[at] ^ 1, sound[at] + 1}) {
      Bytes bytes = sound;
      bytes[at] = static_cast<std::uint8_t>(value);
      UseBytes(bytes);
    }
  }
}

#ifdef KELCACHE_WITH_HDF5
TEST_F(AlembicDamage, OfTheOtherContainerIsToldAndSurvived) {
  heldBesides_ = 1'000'000;  // of libhdf5 for each file that is open
  const Bytes tiny = ReadBytes(TestData("abc_hdf5/tiny.abc"));
  for (const OneField& row : kOneFieldOfHdf5) ChangeOneField(tiny, row);
  for (std::size_t at = 0; at < tiny.size(); ++at) {
    Bytes bytes = tiny;
    bytes[at] = static_cast<std::uint8_t>(~bytes[at]);
    UseBytes(bytes);
  }
  std::mt19937 random(1);
  for (const char* name : {"zero_samples", "user_props_visibility", "cyclic_3", "points_varying"}) {
    const Bytes sound = ReadBytes(TestData(std::string("abc_hdf5/") + name + ".abc"));
    for (int i = 0; i < 500; ++i) {
      Bytes bytes = sound;
      bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
      UseBytes(bytes);
      bytes.resize(random() % bytes.size());
      UseBytes(bytes);
    }
  }
}
#endif

// No fault: groups may nest deeply, and a constant may claim any number of samples.
TEST_F(AlembicDamage, DepthAndLengthAreNoDanger) {
  constexpr int kDepth = 20'000;
  OgawaWriter out(Path());
  const float value = 4;
  const std::uint64_t list = out.ArraySamples({out.Sample(&value, sizeof value)});
  std::uint64_t compound =
      out.Compound({{.name = "v", .sampleCount = 0xffffffff, .constant = true, .slot = list}});
  std::string name = "/v";
  for (int i = 0; i < kDepth; ++i) {
    compound = out.Compound({{.name = "c", .kind = 0, .slot = compound}});
    name.insert(0, "/c");
  }
  std::uint64_t object = out.Object(compound, {});
  for (int i = 0; i < kDepth; ++i) {
    object = out.Object(0, {{"o", "", object}});
    name.insert(0, "/o");
  }
  out.Finish(object);
  EXPECT_TRUE(UseAll(Path()).sound);
  AlembicInterface archive(true);
  unsigned int channel = 9;
  float read = 0;
  const unsigned long calls = SystemCallCount();
  ASSERT_TRUE(archive.Open(Path().c_str(), 1));
  EXPECT_LE(SystemCallCount() - calls, 50u) << "one for each 64 KiB and a few";
  EXPECT_TRUE(archive.GetChannelIdFromName(name.c_str(), channel) && channel == 0);
  EXPECT_TRUE(archive.GetChannelBuffer(0, &read, 1, KelTime()) && read == 4);
}

// A call whose n-th allocation or system call fails answers an error or the truth, and works when
// asked again.
TEST_F(AlembicDamage, FailuresInTurnAreErrors) {
  const auto use = [path = TestData("abc/tiny.abc")] {
    AlembicInterface archive(true);
    if (!archive.Open(path.c_str(), 1)) {
      EXPECT_STRNE(archive.GetErrorString(), "");
      return;
    }
    const auto fetch = [&archive, end = KelTime::FromSeconds(9)] {
      float values[6] = {};
      return archive.GetChannelBufferLength(0) == 2 &&
             archive.GetChannelBuffer(0, values, 2, end) && values[5] == 6;
    };
    unsigned int channel = 1;
    EXPECT_EQ(archive.GetNumChannels(), 2);
    EXPECT_TRUE(!archive.GetChannelIdFromName("/dot/P", channel) || channel == 0);
    EXPECT_TRUE(fetch() || fetch());
    archive.ListTree([](void*, const char*) {}, nullptr);
    archive.Verify([](void*, const char*) {}, nullptr);
  };
  EXPECT_GT(FailEach<FailAllocation>(use), 50u);
  EXPECT_GT(FailEach<FailSystemCall>(use), 4u);
}

}  // namespace
}  // namespace kelsdk::test
