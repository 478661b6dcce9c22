// Real files of another program, fetched through the object and compared with what a separate parse
// of them found, bit for bit.
#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/pc2/pc2_cache.h"

namespace kelsdk::test {
namespace {

using nlohmann::json;
using Point = std::array<double, 3>;

Point PointAt(const float* values, size_t point) {
  return {double(values[3 * point]), double(values[3 * point + 1]), double(values[3 * point + 2])};
}

void ComparePoints(const float* values, size_t first, const json& expected) {
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(PointAt(values, first + i), expected[i].get<Point>()) << "point " << first + i;
  }
}

class Expected : public FileTest, public testing::WithParamInterface<std::string> {};

TEST_P(Expected, EveryValueAgrees) {
  const json expected = json::parse(std::ifstream(GetParam()));
  const std::string path = GetParam().substr(0, GetParam().rfind(".expected.json")) + ".pc2";
  PC2Object cache(path);
  KelStatus status;
  ASSERT_TRUE(cache->OpenFileForRead(&status)) << status.GetErrorString();
  const unsigned int points = expected["points"];
  const unsigned int samples = expected["samples"];
  EXPECT_EQ(cache->GetPointCount(&status), 3 * points);
  EXPECT_EQ(cache->GetSampleCount(&status), samples);
  EXPECT_EQ(cache->GetFrameStartOffset(&status), expected["start"].get<double>());
  EXPECT_EQ(cache->GetSamplingFrameRate(&status), expected["rate"].get<double>());

  Point total{};
  std::vector<double> doubles(3 * size_t{points});
  for (unsigned int sample = 0; sample < samples; ++sample) {
    SCOPED_TRACE(sample);
    float* values = nullptr;
    unsigned int length = 0;
    ASSERT_TRUE(cache->Read(&values, length, FrameTime(sample), 0));
    ASSERT_EQ(length, 3 * points);
    Point low = PointAt(values, 0);
    Point high = low;
    Point sum{};
    for (size_t point = 0; point < points; ++point) {
      const Point at = PointAt(values, point);
      for (size_t axis = 0; axis < 3; ++axis) {
        low[axis] = std::min(low[axis], at[axis]);
        high[axis] = std::max(high[axis], at[axis]);
        sum[axis] += at[axis];
        total[axis] += at[axis];
      }
    }
    for (const json& box : expected["boxes"]) {
      if (box["sample"] != sample) continue;
      EXPECT_EQ(low, box["min"].get<Point>());
      EXPECT_EQ(high, box["max"].get<Point>());
      EXPECT_EQ(sum, box["sum"].get<Point>());
    }
    for (const json& check : expected["checks"]) {
      if (check["sample"] != sample) continue;
      ComparePoints(values, 0, check["first"]);
      ComparePoints(values, points - check["last"].size(), check["last"]);
    }
    ASSERT_TRUE(cache->Read(sample, doubles.data(), points, &status));
    EXPECT_TRUE(std::equal(doubles.begin(), doubles.end(), values));
  }
  EXPECT_EQ(total, expected["total_sum"].get<Point>());
  cache->CloseFile(nullptr);
}

std::vector<std::string> ExpectedFiles() {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(TestData("pc2"))) {
    const std::string path = entry.path().string();
    if (path.ends_with(".expected.json")) files.push_back(path);
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string NameOf(const testing::TestParamInfo<std::string>& file) {
  return std::filesystem::path(file.param).stem().stem().string();
}

INSTANTIATE_TEST_SUITE_P(RealFiles, Expected, testing::ValuesIn(ExpectedFiles()), NameOf);

}  // namespace
}  // namespace kelsdk::test
