// The archives of tests/data/abc and abc_hdf5, as the interface shows them, against what the
// format's own library reads from them, and those of the one folder against those of the other.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>

#include "backends/AlembicInterface.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// What is not finite is text in the expected files.
template <typename Number>
Number NumberOf(const json& value) {
  return value.is_string() ? static_cast<Number>(std::stod(value.get<std::string>()))
                           : value.get<Number>();
}

bool IsSame(float a, float b) {
  return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b));
}

double TimeOf(const json& sampling, std::size_t sample) {
  const json& times = sampling["times"];
  return times[sample % times.size()].get<double>() +
         double(sample / times.size()) * sampling.value("period", 0.0);
}

class Comparison {
 public:
  AlembicInterface archive{true};

  void Compare(const json& expected) {
    EXPECT_TRUE(archive.Verify(nullptr, nullptr));
    for (const json& object : expected["objects"]) {
      const std::string path = object["path"];
      for (const json& property : object["props"]) {
        const bool isNumber =
            property.contains("pod") && property["pod"].get<std::string>().ends_with("_t");
        if (isNumber && property["numSamples"] != 0) {
          ExpectChannel((path == "/" ? "" : path) + "/" + property["path"].get<std::string>(),
                        property,
                        expected["timeSamplings"][property["timeSampling"].get<std::size_t>()]);
        }
      }
    }
    EXPECT_EQ(channels_, std::size_t(archive.GetNumChannels()));
  }

 private:
  static std::string Type(const json& property) {
    std::string type = property["pod"];
    if (type.ends_with("_t")) type.resize(type.size() - 2);
    return type + (property["extent"] == 1 ? "" : "[" + property["extent"].dump() + "]");
  }

  void ExpectChannel(const std::string& path, const json& property, const json& sampling) {
    SCOPED_TRACE(path);
    unsigned int channel = 0;
    AlembicChannelInfo info;
    ASSERT_TRUE(archive.GetChannelIdFromName(path.c_str(), channel));
    ASSERT_TRUE(archive.GetChannelInfo(channel, info));
    ++channels_;
    EXPECT_EQ(info.type, Type(property).c_str());
    EXPECT_EQ(info.interpretation, property.value("interp", "").c_str());
    EXPECT_EQ(info.sampleCount, property["numSamples"]);
    EXPECT_EQ(info.start, property["t0"]);
    EXPECT_EQ(info.end, property["t1"]);
    EXPECT_EQ(info.constant, property["constant"]);
    const char* const kSamplings[] = {"uniform", "cyclic", "acyclic"};
    EXPECT_EQ(kSamplings[info.sampling], sampling["type"]);
    EXPECT_TRUE(info.sampling == AlembicChannelInfo::eAcyclic || info.period == sampling["period"]);
    EXPECT_EQ(property["samples"].size(), info.sampleCount <= 50 ? info.sampleCount : 3);
    for (const json& sample : property["samples"]) {
      ExpectSample(channel, sample, TimeOf(sampling, sample["i"]), info);
    }
  }

  void ExpectSample(unsigned int channel, const json& sample, double seconds,
                    const AlembicChannelInfo& info) {
    const unsigned int extent = archive.GetChannelDataLength(channel);
    const unsigned int count = sample.value("n", 1u);
    EXPECT_LE(count, info.elementCount);
    // With room for one element more, which is not there.
    std::vector<float> floats(std::size_t{extent} * (count + 1));
    ASSERT_TRUE(
        archive.GetChannelBuffer(channel, floats.data(), count + 1, KelTime::FromSeconds(seconds)))
        << archive.GetErrorString();
    while (floats.size() > extent * count) {
      EXPECT_TRUE(std::isnan(floats.back()));
      floats.pop_back();
    }
    unsigned int length = 0;
    EXPECT_TRUE(archive.GetSampleLength(channel, sample["i"], length) && length == count);
    unsigned int at = 0;
    EXPECT_TRUE(archive.GetSampleAtTime(channel, KelTime::FromSeconds(seconds), at) &&
                at == sample["i"]);
    const json& first = sample["first"];
    const json& last = sample["last"];
    for (std::size_t i = 0; i < first.size(); ++i) {
      EXPECT_TRUE(IsSame(floats[i], NumberOf<float>(first[i]))) << floats[i] << " at " << i;
      EXPECT_TRUE(IsSame(floats.end()[-1 - static_cast<long>(i)],
                         NumberOf<float>(last[last.size() - 1 - i])))
          << i << " from the end";
    }
    double magnitude = 0;
    for (const float value : floats) magnitude += std::abs(double(value));
    if (std::isfinite(magnitude)) {
      // Of wider types each value is rounded to the nearest float: by half its last bit at most.
      EXPECT_NEAR(std::accumulate(floats.begin(), floats.end(), 0.0),
                  NumberOf<double>(sample["sum"]), magnitude * 0x1p-24);
    }
  }

  std::size_t channels_ = 0;
};

#ifdef KELCACHE_WITH_HDF5
constexpr bool kWithHdf5 = true;
#else
constexpr bool kWithHdf5 = false;
#endif

std::vector<fs::path> Archives(const char* folder) {
  std::vector<fs::path> paths;
  for (const auto& entry : fs::directory_iterator(TestData(folder))) {
    if (entry.path().extension() == ".abc") paths.push_back(entry.path());
  }
  return paths;
}

void CompareWithExpected(const fs::path& path) {
  SCOPED_TRACE(path);
  std::ifstream file(fs::path(path).replace_extension(".expected.json"));
  const json expected = json::parse(file);
  Comparison comparison;
  const bool opened = comparison.archive.Open(path.c_str(), 1);
  const std::string error = comparison.archive.GetErrorString();
  EXPECT_EQ(opened, kWithHdf5 || expected["container"] == "ogawa") << error;
  EXPECT_TRUE(opened || error.find("HDF5") != error.npos) << error;
  if (opened) comparison.Compare(expected);
}

TEST(AlembicArchives, AreReadAsTheFormatsOwnLibraryReadsThem) {
  const auto ogawa = Archives("abc");
  const auto hdf5 = Archives("abc_hdf5");
  EXPECT_GE(ogawa.size(), 14u);
  EXPECT_GE(hdf5.size(), 7u);
  for (const fs::path& path : ogawa) CompareWithExpected(path);
  for (const fs::path& path : hdf5) CompareWithExpected(path);
}

// All that a channel shows but its number: HDF5 keeps no order of the properties of a compound.
json Contents(AlembicInterface& archive, unsigned int channel) {
  AlembicChannelInfo info;
  EXPECT_TRUE(archive.GetChannelInfo(channel, info));
  json samples = json::array();
  for (unsigned int i = 0; i < info.sampleCount; ++i) {
    double seconds = 0;
    unsigned int count = info.elementCount;
    const std::size_t room = std::size_t{8} * archive.GetChannelDataLength(channel) * count;
    std::string values(room, '\0');
    EXPECT_TRUE(archive.GetSampleTime(channel, i, seconds));
    EXPECT_TRUE(archive.ReadSample(channel, i, values.data(), count)) << archive.GetErrorString();
    unsigned int first = 0;
    unsigned int last = 0;
    unsigned long long identity = 0;
    EXPECT_TRUE(archive.GetSampleRun(channel, i, first, last, identity));
    values.resize(std::size_t{count} * archive.GetChannelTypeSize(channel));
    samples.push_back(
        {seconds, count, first, last, identity != 0, json::binary({values.begin(), values.end()})});
  }
  return {std::string(info.type),
          std::string(info.interpretation),
          info.elementCount,
          info.start,
          info.end,
          int(info.sampling),
          info.period,
          info.constant,
          int(info.value),
          std::move(samples)};
}

json Contents(const std::string& path) {
  AlembicInterface archive(true);
  EXPECT_TRUE(archive.Open(path.c_str(), 1)) << archive.GetErrorString();
  json contents = {{"channels", archive.GetNumChannels()}};
  for (unsigned int i = 0; i < unsigned(archive.GetNumChannels()); ++i) {
    KelString name;
    EXPECT_TRUE(archive.GetChannelName(i, name));
    contents[std::string(name)] = Contents(archive, i);
  }
  return contents;
}

TEST(AlembicArchives, AreEqualInBothContainers) {
  if (!kWithHdf5) GTEST_SKIP();
  for (const fs::path& path : Archives("abc_hdf5")) {
    SCOPED_TRACE(path);
    EXPECT_EQ(Contents(path), Contents(TestData("abc/" + path.filename().string())));
  }
}

}  // namespace
}  // namespace kelsdk::test
