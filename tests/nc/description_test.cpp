#include "backends/nc/description.h"

#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

const std::string kByHand = R"(<?xml version="1.0"?>
<!-- by hand -->
<nccache version="1" identity="000102030405060708090a0b0c0d0e0f" created="5"
         layout="perFrame" data="ncc" ticksPerFrame="250" frameRate="24000/1001">
  <channel name="P" interpretation="Points" type="FloatArray"/>
  <channel type="Double" name="a&lt;&#233;" interpretation="" interval="7"><times>250
    500</times></channel>
  <times>-250:250:4 1000</times>
</nccache>)";

std::string With(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

TEST(Description, WhatIsUnderstood) {
  Description description;
  io::Error error;
  ASSERT_TRUE(ParseDescription(kByHand.data(), kByHand.size(), &description, error))
      << error.text();
  EXPECT_TRUE(description.isPerFrame && description.encoding == eBytePlanes);
  EXPECT_DOUBLE_EQ(ExactTicks(description.ticksPerFrame, description.exactRate), 250.25);
  ASSERT_EQ(description.channels.size(), 2u);
  EXPECT_EQ(description.channels[1].name, "a<\xC3\xA9");
  EXPECT_EQ(description.TimesOf(description.channels[0]).Count(), 5u);
  EXPECT_EQ(description.TimesOf(description.channels[1]).At(1), 500);
}

TEST(Description, WhatIsRefused) {
  const char* const rows[][3] = {
      {"cut short", "</nccache>", ""},
      {"a version from the future", "version=\"1\"", "version=\"2\""},
      {"no identity", "identity=\"000102030405060708090a0b0c0d0e0f\"", ""},
      {"an unknown attribute", "data=", "file=\"/etc/passwd\" data="},
      {"beyond 32 bits", "\"250\"", "\"2147483648\""},
      {"a rate of other ticks", "24000/1001", "30000/1001"},
      {"a rate by zero", "24000/1001", "24000/0"},
      {"an unknown element", "<times>-250", "<file name='../x.ncx'/><times>-250"},
      {"two channels of one name", "a&lt;&#233;", "P"},
      {"frames without times", "<times>-250:250:4 1000</times>", ""},
      {"times going back", "4 1000", "4 1"},
      {"a run past the last tick", "-250:250:4 1000", "1:2147483648:2"},
      {"a run whose span is near 2^64", "-250:250:4 1000", "0:4294967295:4294967295"},
      {"a document type", "<nccache", "<!DOCTYPE nccache [<!ENTITY P \"x\">]><nccache"},
  };
  Description description;
  io::Error error;
  for (const auto& [why, from, to] : rows) {
    error.Clear();
    const std::string text = With(kByHand, from, to);
    EXPECT_FALSE(ParseDescription(text.data(), text.size(), &description, error)) << why;
    EXPECT_STRNE(error.text(), "") << why;
  }
  std::string nested;
  while (nested.size() < 10u << 20) nested += "<a>";
  const unsigned long before = test::AllocationCount();
  EXPECT_FALSE(ParseDescription(nested.data(), nested.size(), &description, error));
  EXPECT_EQ(test::AllocationCount(), before) << "refused before a tree is built";
}

using DescriptionFile = NcTest;

TEST_F(DescriptionFile, MismatchWithTheDataFiles) {
  CacheSpec frames = Form{Cache::eFilePerFrame, "ncx"}.Of(Frames(5, 3));
  frames.channels.push_back({"late", zuCacheData::eNCFloatArray});
  frames.samples.push_back({1, 1000, Bytes(12)});
  ASSERT_TRUE(Write(Folder(), "shot", Frames(2, 3)) && Write(Folder(), "frames", frames));
  EXPECT_TRUE(Verifies("frames"));
  const auto describe = [this](const std::string& name, const std::string& text) {
    test::WriteBytes(folder_.File(name + ".xml"), Bytes(text.begin(), text.end()));
  };
  const struct {
    const char* cache;
    const char* from;
    const char* to;
    bool opens;
  } rows[] = {{"shot", "FloatVectorArray", "FloatArray", false},
              {"shot", "data=\"ncx\"", "data=\"ncc\"", false},
              {"shot", "layout=\"single\"", "layout=\"perFrame\"", false},
              {"shot", "name=\"P\"", "name=\"Q\"", true},
              {"shot", "ticksPerFrame=\"250\"", "ticksPerFrame=\"251\"", true},
              // Times of a channel, the last of which alone has a file.
              {"frames", ">1000<", ">100:450:3<", true},
              {"frames", ">1000<", ">-2147483648:1:2147484649<", true},
              {"frames", ">1000<", ">750 1000<", true},
              {"frames", ">1000<", ">0<", true},
              {"frames", ">1000<", ">1000 1250<", true}};
  for (const auto& row : rows) {
    const Bytes sound = test::ReadBytes(folder_.File(row.cache + std::string(".xml")));
    describe(row.cache, With({sound.begin(), sound.end()}, row.from, row.to));
    Cache cache;
    EXPECT_EQ(Open(cache, row.cache), row.opens) << row.to;
    EXPECT_FALSE(Verifies(row.cache)) << row.to;
    describe(row.cache, {sound.begin(), sound.end()});
  }
  // One line claims billions of files: no memory, no time.
  describe("shot", With(kByHand, "-250:250:4 1000", "-2147483648:1:4294967295"));
  EXPECT_FALSE(Verifies("shot"));
  Cache cache;
  ASSERT_TRUE(Open(cache)) << cache.errorString();
  EXPECT_EQ(cache.getDataCount(0), 0xFFFFFFFFu);
  EXPECT_FALSE(ReadArray(cache, 0, 0));
}

}  // namespace
}  // namespace kelsdk::nc
