#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <optional>

#include "backends/AlembicInterface.h"
#include "tests/alembic/ogawa_writer.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {
namespace {

using alembic::test::OgawaWriter;

struct Outcome {
  std::optional<int> channels;  // none: refused at open
  bool sound = false;
  std::string words;  // the error of a refused file, else what Verify reported
};

// Opens an archive and uses all of it, whatever state it is in.
Outcome UseAll(const std::string& path) {
  Outcome outcome;
  const auto before = ::mallinfo2();
  AlembicInterface archive(true);
  const bool opened = archive.Open(path.c_str(), 1);
  const auto after = ::mallinfo2();
  const std::size_t held = after.uordblks + after.hblkhd - before.uordblks - before.hblkhd;
  EXPECT_LE(held, 20 * std::filesystem::file_size(path) + 100'000);
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
  std::size_t offset, width;
  std::uint64_t value;
  std::optional<int> channels;  // none: refused at open
  const char* words;
} kOneField[] = {
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

TEST_F(AlembicDamage, FieldsAreRefusedOrReportedAndAnyBytesSurvived) {
  const Bytes sound = ReadBytes(TestData("abc/tiny.abc"));
  ASSERT_TRUE(UseBytes(sound).sound);
  for (const auto& row : kOneField) {
    Bytes bytes = sound;
    std::memcpy(&bytes[row.offset], &row.value, row.width);
    const Outcome outcome = UseBytes(bytes);
    EXPECT_EQ(outcome.channels, row.channels) << row.why;
    EXPECT_FALSE(outcome.sound) << row.why;
    EXPECT_NE(outcome.words.find(row.words), std::string::npos) << row.why << ": " << outcome.words;
  }
  for (std::size_t at = 0; at < sound.size(); ++at) {
    EXPECT_FALSE(UseBytes({sound.data(), sound.data() + at}).channels) << "cut at " << at;
    for (const int value : {0, 1, 0x7f, 0x80, 0xff, sound[at] ^ 1, sound[at] + 1}) {
      Bytes bytes = sound;
      bytes[at] = static_cast<std::uint8_t>(value);
      UseBytes(bytes);
    }
  }
}

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
