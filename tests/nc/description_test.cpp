#include "backends/nc/description.h"

#include <cstdlib>

#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

constexpr char kRoot[] =
    R"(<nccache version="1" identity="000102030405060708090a0b0c0d0e0f" created="5" )";

std::string Single(
    const std::string& inside,
    const std::string& attributes = R"(layout="single" data="ncx" ticksPerFrame="250")") {
  return kRoot + attributes + ">" + inside + "</nccache>";
}

std::string PerFrame(const std::string& inside) {
  return Single(inside, R"(layout="perFrame" data="ncc" ticksPerFrame="250")");
}

const std::string kChannel = R"(<channel name="P" interpretation="Points" type="FloatArray"/>)";

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

  const std::string again = FormatDescription(description);
  Description reread;
  ASSERT_TRUE(ParseDescription(again.data(), again.size(), &reread, error)) << error.text();
  EXPECT_EQ(FormatDescription(reread), again);
}

TEST(Description, WhatIsRefused) {
  const std::string good = R"(layout="single" data="ncx" ticksPerFrame="250")";
  const struct {
    const char* why;
    std::string text;
  } rows[] = {
      {"nothing", ""},
      {"no XML", "shot 1 250"},
      {"cut short", Single(kChannel).substr(0, 150)},
      {"another root", "<cache/>"},
      {"two roots", Single("") + Single("")},
      {"a version from the future",
       R"(<nccache version="2" identity="000102030405060708090a0b0c0d0e0f" created="5" )" + good +
           "/>"},
      {"no identity", R"(<nccache version="1" )" + good + "/>"},
      {"an identity of 31 digits",
       R"(<nccache version="1" identity="00102030405060708090a0b0c0d0e0f" )" + good + "/>"},
      {"a doubled attribute", Single("", good + R"( data="ncx")")},
      {"an unknown attribute", Single("", good + R"( file="/etc/passwd")")},
      {"an unknown layout", Single("", R"(layout="both" data="ncx" ticksPerFrame="250")")},
      {"an unknown form", Single("", R"(layout="single" data="mc" ticksPerFrame="250")")},
      {"no number", Single("", R"(layout="single" data="ncx" ticksPerFrame="2x")")},
      {"beyond 32 bits", Single("", R"(layout="single" data="ncx" ticksPerFrame="2147483648")")},
      {"time running back", Single("", R"(layout="single" data="ncx" ticksPerFrame="-1")")},
      {"an unknown element", Single("<file name='../x.ncx'/>")},
      {"stray text", Single("P")},
      {"a channel without a name", Single(R"(<channel interpretation="" type="FloatArray"/>)")},
      {"an empty name", Single(R"(<channel name="" interpretation="" type="FloatArray"/>)")},
      {"two channels of one name", Single(kChannel + kChannel)},
      {"an unknown type", Single(R"(<channel name="P" interpretation="" type="Half"/>)")},
      {"times in a single file", Single("<times>0</times>")},
      {"frames without times", PerFrame(kChannel)},
      {"times twice", PerFrame("<times>0</times><times>1</times>")},
      {"times going back", PerFrame("<times>250 0</times>")},
      {"times that leave the range", PerFrame("<times>0:2147483648:2</times>")},
      {"a run of nothing", PerFrame("<times>0:1:0</times>")},
      {"half a run", PerFrame("<times>0:1</times>")},
      {"a document type", "<!DOCTYPE nccache [<!ENTITY P \"x\">]>" + Single(kChannel)},
      {"an external entity", "<!DOCTYPE nccache SYSTEM \"/etc/passwd\">" + Single(kChannel)},
  };
  for (const auto& row : rows) {
    Description description;
    io::Error error;
    EXPECT_FALSE(ParseDescription(row.text.data(), row.text.size(), &description, error))
        << row.why;
    EXPECT_STRNE(error.text(), "") << row.why;
  }
}

TEST(Description, TenMegabytesOfNesting) {
  std::string text;
  while (text.size() < 10u << 20) text += "<a>";
  Description description;
  io::Error error;
  const unsigned long before = test::AllocationCount();
  EXPECT_FALSE(ParseDescription(text.data(), text.size(), &description, error));
  EXPECT_EQ(test::AllocationCount(), before) << "refused before a tree is built";
}

using DescriptionFile = NcTest;

// One line claims billions of files: no memory, no time.
TEST_F(DescriptionFile, BillionsOfFiles) {
  const std::string text = PerFrame(kChannel + "<times>-2147483648:1:4294967295</times>");
  test::WriteBytes(folder_.File("shot.xml"), Bytes(text.begin(), text.end()));
  Cache cache;
  ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str())) << cache.errorString();
  EXPECT_EQ(cache.getDataCount(0), 0xFFFFFFFFu);
  EXPECT_FALSE(ReadArray(cache, 0, 0));
  EXPECT_FALSE(Verifies("shot"));
}

TEST_F(DescriptionFile, MismatchWithTheDataFile) {
  ASSERT_TRUE(Write(Folder(), "shot", Frames(2, 3)));
  const Bytes bytes = test::ReadBytes(folder_.File("shot.xml"));
  const std::string sound(bytes.begin(), bytes.end());
  const struct {
    const char* from;
    const char* to;
    bool opens;
  } rows[] = {{"FloatVectorArray", "FloatArray", false},
              {"FloatVectorArray", "Int32Array", false},
              {"data=\"ncx\"", "data=\"ncc\"", false},
              {"layout=\"single\"", "layout=\"perFrame\"", false},
              {"name=\"P\"", "name=\"Q\"", true},
              {"ticksPerFrame=\"250\"", "ticksPerFrame=\"251\"", true}};
  for (const auto& row : rows) {
    std::string text = sound;
    text.replace(text.find(row.from), std::strlen(row.from), row.to);
    test::WriteBytes(folder_.File("shot.xml"), Bytes(text.begin(), text.end()));
    Cache cache;
    EXPECT_EQ(cache.initFileRead("shot", Folder().c_str()), row.opens) << row.to;
    EXPECT_FALSE(Verifies("shot")) << row.to;
  }
  test::WriteBytes(folder_.File("shot.xml"), bytes);
  ASSERT_EQ(std::remove(folder_.File("shot.ncx").c_str()), 0);
  Cache cache;
  EXPECT_FALSE(cache.initFileRead("shot", Folder().c_str()));
  EXPECT_NE(std::string(cache.errorString()).find("shot.ncx"), std::string::npos);
}

}  // namespace
}  // namespace kelsdk::nc
