#include "backends/nc/description.h"

#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

const std::string kRoot =
    R"(<nccache version="1" identity="000102030405060708090a0b0c0d0e0f" created="5" )";
const std::string kGood = R"(layout="single" data="ncx" ticksPerFrame="250")";
const std::string kChannel = R"(<channel name="P" interpretation="Points" type="FloatArray"/>)";

std::string With(const std::string& attributes, const std::string& inside = "") {
  return kRoot + attributes + ">" + inside + "</nccache>";
}
std::string Single(const std::string& inside) {
  return With(kGood, inside);
}
std::string PerFrame(const std::string& inside) {
  return With(R"(layout="perFrame" data="ncc" ticksPerFrame="250")", inside);
}

TEST(Description, WhatIsUnderstood) {
  Description description;
  io::Error error;
  const std::string text =
      "<?xml version=\"1.0\"?>\n<!-- by hand -->\n" +
      PerFrame(kChannel +
               "<channel type=\"Double\" name=\"a&lt;&#233;\" interpretation=\"\""
               " interval=\"7\"><times>250\n500</times></channel>"
               "<times>-250:250:4 1000</times>");
  ASSERT_TRUE(ParseDescription(text.data(), text.size(), &description, error)) << error.text();
  EXPECT_TRUE(description.isPerFrame);
  EXPECT_TRUE(description.isCompact);
  EXPECT_EQ(description.identity[15], 15);
  ASSERT_EQ(description.channels.size(), 2u);
  EXPECT_EQ(description.channels[1].name, "a<\xC3\xA9");
  EXPECT_EQ(description.channels[1].interval, 7u);
  EXPECT_EQ(description.TimesOf(description.channels[0]).Count(), 5u);
  EXPECT_EQ(description.TimesOf(description.channels[1]).At(1), 500);
}

TEST(Description, WhatIsRefused) {
  const struct {
    const char* why;
    std::string text;
  } rows[] = {
      {"cut short", Single(kChannel).substr(0, 150)},
      {"a version from the future",
       R"(<nccache version="2" identity="000102030405060708090a0b0c0d0e0f" )" + kGood + "/>"},
      {"no identity", R"(<nccache version="1" )" + kGood + "/>"},
      {"an unknown attribute", With(kGood + R"( file="/etc/passwd")")},
      {"beyond 32 bits", With(R"(layout="single" data="ncx" ticksPerFrame="2147483648")")},
      {"an unknown element", Single("<file name='../x.ncx'/>")},
      {"two channels of one name", Single(kChannel + kChannel)},
      {"frames without times", PerFrame(kChannel)},
      {"times going back", PerFrame("<times>250 0</times>")},
      {"a run past the last tick", PerFrame("<times>1:2147483648:2</times>")},
      {"a run whose span is near 2^64", PerFrame("<times>0:4294967295:4294967295</times>")},
      {"a document type", "<!DOCTYPE nccache [<!ENTITY P \"x\">]>" + Single(kChannel)},
  };
  Description description;
  io::Error error;
  for (const auto& row : rows) {
    error.Clear();
    EXPECT_FALSE(ParseDescription(row.text.data(), row.text.size(), &description, error))
        << row.why;
    EXPECT_STRNE(error.text(), "") << row.why;
  }
  std::string nested;
  while (nested.size() < 10u << 20) nested += "<a>";
  const unsigned long before = test::AllocationCount();
  EXPECT_FALSE(ParseDescription(nested.data(), nested.size(), &description, error));
  EXPECT_EQ(test::AllocationCount(), before) << "refused before a tree is built";
}

using DescriptionFile = NcTest;

TEST_F(DescriptionFile, MismatchWithTheDataFiles) {
  const auto describe = [this](const std::string& text) {
    test::WriteBytes(folder_.File("shot.xml"), Bytes(text.begin(), text.end()));
  };
  ASSERT_TRUE(Write(Folder(), "shot", Frames(2, 3)));
  const Bytes bytes = test::ReadBytes(folder_.File("shot.xml"));
  const struct {
    const char* from;
    const char* to;
    bool opens;
  } rows[] = {{"FloatVectorArray", "FloatArray", false},
              {"data=\"ncx\"", "data=\"ncc\"", false},
              {"layout=\"single\"", "layout=\"perFrame\"", false},
              {"name=\"P\"", "name=\"Q\"", true},
              {"ticksPerFrame=\"250\"", "ticksPerFrame=\"251\"", true}};
  for (const auto& row : rows) {
    std::string text(bytes.begin(), bytes.end());
    describe(text.replace(text.find(row.from), std::strlen(row.from), row.to));
    EXPECT_EQ(ReadCache(Folder(), "shot").has_value(), row.opens) << row.to;
    EXPECT_FALSE(Verifies("shot")) << row.to;
  }
  // One line claims billions of files: no memory, no time.
  describe(PerFrame(kChannel + "<times>-2147483648:1:4294967295</times>"));
  EXPECT_FALSE(Verifies("shot"));
  Cache cache;
  ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str())) << cache.errorString();
  EXPECT_EQ(cache.getDataCount(0), 0xFFFFFFFFu);
  EXPECT_FALSE(ReadArray(cache, 0, 0));
}

}  // namespace
}  // namespace kelsdk::nc
