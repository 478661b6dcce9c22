#include <array>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <type_traits>

#include "host/KelFraction.h"
#include "host/KelManager.h"
#include "host/KelMemory.h"
#include "host/KelNearestFloat.h"
#include "host/KelObject.h"
#include "host/KelPathUtils.h"
#include "host/KelStatus.h"
#include "host/KelTime.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {
namespace {

using Host = FileTest;

TEST_F(Host, TimeOfFrameGivesThatFrameAtEveryRate) {
  for (int mode = KelTime::eDefaultMode; mode <= KelTime::eNTSC60; ++mode) {
    const auto rate = static_cast<KelTime::EMode>(mode);
    for (long long frame = -100000; frame <= 100000; frame += 7) {
      const KelTime time = KelTime::FromFrame(frame, rate);
      ASSERT_EQ(time.GetFrameCount(rate), frame) << "mode " << mode;
      ASSERT_EQ((time - KelTime(1)).GetFrameCount(rate), frame - 1) << "mode " << mode;
    }
  }
  // A time made from seconds is rounded to the nearest unit and still names its frame.
  for (int frame = 1; frame < 200000; ++frame) {
    ASSERT_EQ(KelTime::FromSeconds(frame * 1001.0 / 30000.0).GetFrameCount(KelTime::eNTSC30),
              frame);
  }
  const KelTime time = KelTime::FromFrame(100, KelTime::eFrames25);
  EXPECT_EQ(time.GetFrameCount(KelTime::eDefaultMode), 96);
  EXPECT_TRUE(KelTime::SetDefaultFrameRate({25, 1}) && !KelTime::SetDefaultFrameRate({0, 1}));
  EXPECT_EQ(time.GetFrameCount(KelTime::eDefaultMode), 100);
  EXPECT_TRUE(KelTime::SetDefaultFrameRate({24, 1}));
}

TEST_F(Host, TimeAtTheEndsOfItsRange) {
  EXPECT_EQ(KelTime(LLONG_MAX).GetFrameCount(KelTime::eFrames24), LLONG_MAX / 1924423250);
  EXPECT_EQ(KelTime(LLONG_MIN).GetFrameCount(KelTime::eFrames24), LLONG_MIN / 1924423250 - 1);
  EXPECT_EQ(KelTime::FromFrame(LLONG_MAX, KelTime::eFrames24).Get(), LLONG_MAX);
  EXPECT_EQ(KelTime::FromSeconds(1e300).Get(), LLONG_MAX);
  EXPECT_EQ(KelTime::FromSeconds(-INFINITY).Get(), LLONG_MIN);
  EXPECT_EQ(KelTime::FromSeconds(NAN).Get(), 0);
  EXPECT_EQ((KelTime(7) / KelTime(0)).Get(), 0);
  EXPECT_EQ((KelTime(-7) / KelTime(2)).Get(), -3);
  EXPECT_EQ((KelTime(LLONG_MIN) / KelTime(-1)).Get(), LLONG_MAX);
}

TEST_F(Host, FractionsAndFrameRatesThatAreMeant) {
  const double rows[][4] = {{0.249, 0.251, 1, 4}, {2, 3, 2, 1},  {2.1, 3.9, 3, 1},
                            {-0.6, -0.4, -1, 2},  {-1, 1, 0, 1}, {0.3333, 0.3334, 1, 3},
                            {10.5, 10.5, 21, 2},  {3, 2, 0, 0},  {NAN, 1, 0, 0},
                            {1e300, 2e300, 0, 0}};
  for (const auto& [low, high, numerator, denominator] : rows) {
    const KelFraction found = KelFraction::Simplest(low, high);
    EXPECT_EQ(double(found.numerator), numerator) << low;
    EXPECT_EQ(double(found.denominator), denominator) << low;
  }
  EXPECT_NEAR(KelFraction::Simplest(0.1000000001, 0.1000000002).Value(), 0.10000000015, 6e-11);
  const struct {
    double typed, computed;
    KelFrameRate rate;
  } rates[] = {{24, 24, {24, 1}},
               {29.97, 30000 / 1001.0, {30000, 1001}},
               {23.976, 24000 / 1001.0, {24000, 1001}},
               {-24, -1, {0, 0}},
               {NAN, 0, {0, 0}},
               {1e9, NAN, {0, 0}}};
  for (const auto& row : rates) {
    EXPECT_TRUE(KelFrameRate::FromDouble(row.typed) == row.rate) << row.typed;
    EXPECT_TRUE(KelFrameRate::FromComputed(row.computed) == row.rate) << row.computed;
  }
}

TEST_F(Host, PathsComeApart) {
  const struct {
    const char *path, *folder, *stem, *name, *resolved;
  } cases[] = {
      {"/a/./b/../c.pc2", "/a/./b/..", "c", "c.pc2", "/a/c.pc2"},
      {"a\\b\\c.tar.gz", "a\\b", "c.tar", "c.tar.gz", nullptr},
      {"/../../a/.hidden", "/../../a", ".hidden", ".hidden", "/a/.hidden"},
      {"/a//b/", "/a//b", "", "", "/a/b"},
      {"/a//\\b.c", "/a", "b", "b.c", "/a/b.c"},
      {"//name", "", "name", "name", "/name"},
      {"", ".", "", "", ""},
  };
  for (const auto& c : cases) {
    EXPECT_STREQ(KelPathUtils::GetFolderName(c.path), c.folder) << c.path;
    EXPECT_STREQ(KelPathUtils::GetFileName(c.path, false), c.stem) << c.path;
    EXPECT_STREQ(KelPathUtils::GetFileName(c.path, true), c.name) << c.path;
    if (c.resolved == nullptr) continue;
    EXPECT_STREQ(KelPathUtils::Resolve(c.path), c.resolved);
  }
  const std::string relative = KelPathUtils::Resolve("x/../caches/shot 1.pc2").Buffer();
  EXPECT_TRUE(relative.starts_with("/") && relative.ends_with("/caches/shot 1.pc2"));
  const auto before = std::filesystem::current_path();
  std::filesystem::create_directory(folder_.File("gone"));
  std::filesystem::current_path(folder_.File("gone"));
  std::filesystem::remove(folder_.File("gone"));
  EXPECT_STREQ(KelPathUtils::Resolve("x.pc2"), "") << "no folder to start from";
  EXPECT_STREQ(KelPathUtils::Resolve("/x.pc2"), "/x.pc2");
  std::filesystem::current_path(before);
}

static_assert(!std::is_constructible_v<bool, KelString> && !std::is_convertible_v<KelString, bool>);
static_assert(std::is_constructible_v<std::string, KelString>);

template <typename A, typename B>
std::array<bool, 6> Compared(const A& a, const B& b) {
  return {a == b, a != b, a<b, a <= b, a> b, a >= b};
}

TEST_F(Host, TextsCompareByTheirBytes) {
  // Ascending, no two equal; the third holds a zero byte, which plain characters cannot hold.
  const KelString texts[] = {"", "a", KelString("a\0b", 3), "ab", "b", "\xC3\xA9"};
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < 6; ++j) {
      SCOPED_TRACE(std::to_string(i) + " " + std::to_string(j));
      EXPECT_EQ(Compared(texts[i], texts[j]), Compared(i, j));
      if (j == 2) continue;
      const char* plain = texts[j];
      EXPECT_EQ(Compared(texts[i], plain), Compared(i, j));
      EXPECT_EQ(Compared(plain, texts[i]), Compared(j, i));
    }
  }
  const char* const none = nullptr;
  EXPECT_EQ(Compared(none, texts[0]), Compared(-1, 0));
  EXPECT_EQ(Compared(texts[0], none), Compared(0, -1));
  std::ostringstream shown;
  shown << texts[3];
  EXPECT_EQ(shown.str(), "ab");
}

TEST_F(Host, MemoryHandlersComeAllThreeOrNone) {
  EXPECT_FALSE(KelSetMemoryHandlers(std::malloc, nullptr, nullptr));
  EXPECT_FALSE(KelSetMemoryHandlers(std::malloc, std::realloc, nullptr));
  EXPECT_FALSE(KelSetMemoryHandlers(nullptr, std::realloc, std::free));
  const unsigned long before = AllocationCount();
  KelFree(KelMalloc(1));
  EXPECT_EQ(AllocationCount(), before + 1) << "the handlers of before are in use";
}

TEST_F(Host, PropertiesCompareTagsAndKeepNoAddress) {
  KelManager* manager = KelManager::Create();
  KelObject* object =
      manager->CreateNewObjectFromClassId(KelObject::ClassId, "o", nullptr, nullptr);
  bool existed = true;
  {
    std::string name = "a type of a caller's own";
    const KelDataType type(name.c_str(), eKelString);
    EXPECT_TRUE(KelProperty::Create(object, type, "p", "", true, &existed).IsValid());
    EXPECT_FALSE(existed) << "told as well as that one did";
    name.assign(name.size(), 'x');
  }
  const KelProperty same = KelProperty::Create(object, KelStringDT, "p", "", true, &existed);
  ASSERT_TRUE(existed && same.IsValid());
  EXPECT_STREQ(same.GetDataType()->GetName(), "a type of a caller's own");
  EXPECT_EQ(same.GetDataType()->GetType(), eKelString);
  EXPECT_FALSE(KelProperty::Create(object, KelEnumDT, "p", "", true, &existed).IsValid());
  EXPECT_TRUE(existed);
  manager->Destroy();
}

TEST_F(Host, DoublesBecomeTheNearestFloat) {
  constexpr double kFirstInfinite = 0x1.ffffffp127;
  const double last = std::nextafter(kFirstInfinite, 0);
  const std::pair<double, float> rows[] = {
      {0.1, 0.1F}, {1e300, INFINITY}, {kFirstInfinite, INFINITY}, {last, FLT_MAX}, {0, 0}};
  for (const auto& [value, nearest] : rows) {
    EXPECT_EQ(KelNearestFloat(value), nearest) << value;
    EXPECT_EQ(KelNearestFloat(-value), -nearest) << value;
    EXPECT_TRUE(std::signbit(KelNearestFloat(-value))) << value;
  }
  EXPECT_TRUE(std::isnan(KelNearestFloat(NAN)));
}

TEST_F(Host, TextsReplaceJoinAndRunOutOfMemory) {
  KelString text("a\\b\\c");
  EXPECT_TRUE(text.FindAndReplace("\\", "/", 2));
  EXPECT_FALSE(text.FindAndReplace("", "x", 0));
  text += text;
  EXPECT_STREQ(text.Left(100), "a\\b/ca\\b/c");
  EXPECT_STREQ(KelString() + nullptr + "", "");
  const unsigned long failures = FailEach<FailAllocation>([] {
    const KelString folder("/some/folder");
    const KelString path = folder + "/" + KelString("name") + ".pc2";
    EXPECT_STREQ(path, path.IsValid() ? "/some/folder/name.pc2" : "");
  });
  EXPECT_GE(failures, 5U);
  KelStatus status;
  status.SetCode(KelStatus::eFailure, "not found: %s", "a");
  status.SetCode(KelStatus::eFailure, "again: %s", status.GetErrorString());
  EXPECT_STREQ(status.GetErrorString(), "again: not found: a");
}

}  // namespace
}  // namespace kelsdk::test
