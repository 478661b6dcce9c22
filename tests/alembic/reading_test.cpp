#include <algorithm>
#include <bit>
#include <cmath>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>

#include "backends/AlembicInterface.h"
#include "backends/alembic/plain_type.h"
#include "backends/alembic/time_sampling.h"
#include "tests/alembic/ogawa_writer.h"
#include "tests/support/fixture.h"

namespace kelsdk::test {
namespace {

using alembic::EPlainType;
using alembic::TimeSampling;
using alembic::test::OgawaWriter;
using Slots = std::vector<std::uint64_t>;

class AlembicReading : public FileTest {
 protected:
  void Open(const std::string& path) {
    ASSERT_TRUE(archive_.Open(path.c_str(), 1)) << archive_.GetErrorString();
  }

  const std::string path_ = folder_.File("made.abc");
  OgawaWriter out_{path_};
  AlembicInterface archive_{true};
};

// An array P in the compound of a schema, or in one named ".geom", is its object's positions.
TEST_F(AlembicReading, ListsPositionsFirstAndFindsThemByObject) {
  const float point[3] = {};
  const auto list = out_.ArraySamples({out_.Sample(point, sizeof point)});
  const auto points = [&] {
    return out_.Compound({{.name = "P", .extent = 3, .sampleCount = 1, .slot = list}});
  };
  const auto shape = [&](const char* name, const char* metadata) {
    const OgawaWriter::PropertySpec compound = {
        .name = name, .kind = 0, .metadata = metadata, .slot = points()};
    return out_.Object(out_.Compound({compound}), {});
  };
  const auto other = shape(".other", "");
  const auto mine = shape(".mine", OgawaWriter::MeshMetadata());
  const auto plain = shape(".geom", "");
  const auto copy = shape(".geom", "");
  const auto rig = out_.Object(points(), {{"mine", "", mine}, {"plain", "", plain}});
  out_.Finish(
      out_.Object(0, {{"other", "", other}, {"copy", "isInstance=1", copy}, {"rig", "", rig}}));

  ASSERT_NO_FATAL_FAILURE(Open(path_));
  const char* const names[] = {"/rig/mine/.mine/P", "/rig/plain/.geom/P",
                               "/other/.other/P",   "/rig/P",
                               "/rig/mine",         "/rig/plain"};
  ASSERT_EQ(archive_.GetNumChannels(), 4);
  unsigned int found = 99;
  for (unsigned int i = 0; i < 6; ++i) {
    EXPECT_TRUE(archive_.GetChannelIdFromName(names[i], found) && found == i % 4) << names[i];
  }
  for (const char* name : {"/other", "/copy", "/rig", "/", "", "rig/mine", "/rig/mine/"}) {
    EXPECT_FALSE(archive_.GetChannelIdFromName(name, found)) << name;
  }
}

class AlembicMeshes : public AlembicReading {
 protected:
  static std::uint64_t Points(OgawaWriter& out, std::size_t points, float value = 1) {
    const std::vector<float> values(points * 3, value);
    return out.Sample(values.data(), values.size() * sizeof(float));
  }

  // An object for each list of samples, with nothing but positions.
  static void Finish(OgawaWriter& out, const std::vector<Slots>& meshes) {
    std::vector<OgawaWriter::ObjectSpec> objects;
    for (const Slots& samples : meshes) {
      const auto geom = out.Compound({{.name = "P",
                                       .extent = 3,
                                       .sampleCount = static_cast<std::uint32_t>(samples.size()),
                                       .timeSampling = 1,
                                       .slot = out.ArraySamples(samples)}});
      const auto top = out.Compound(
          {{.name = ".geom", .kind = 0, .metadata = OgawaWriter::MeshMetadata(), .slot = geom}});
      objects.push_back({"m" + std::to_string(objects.size()), "", out.Object(top, {})});
    }
    out.Finish(out.Object(0, objects), 1 / 24.0);
  }
};

TEST_F(AlembicMeshes, FetchWithAtMostOneSystemCallAndNoAllocation) {
  Slots samples;
  while (samples.size() < 700) samples.push_back(Points(out_, 50, float(samples.size())));
  Finish(out_, {samples});
  ASSERT_NO_FATAL_FAILURE(Open(path_));
  std::vector<float> values(150);
  const auto fetch = [&](std::uint32_t i) {
    ASSERT_TRUE(archive_.GetChannelBuffer(0, values.data(), 50, KelTime::FromFrame(i, {24, 1})));
    ASSERT_TRUE(values.front() == float(i) && values.back() == float(i));
  };
  // The third begins to read ahead. The list of samples is kept by windows of 256, and moving one
  // costs a call.
  for (const std::uint32_t i : {0u, 1u, 2u, 256u, 512u, 513u, 514u}) fetch(i);
  ExpectCost(515u, 700u, 1, fetch);
}

// The largest sample is found without a read for each, and is the largest all the same: whatever
// the order of frames and meshes, with samples used again, out of order and far apart.
TEST_F(AlembicMeshes, HaveALargestSampleWhereverSamplesStand) {
  std::minstd_rand random(7);
  const auto any = [&](std::size_t most) { return std::size_t{random()} % (most + 1); };
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    const bool byMesh = any(1) == 0;
    const std::size_t frames = 2 + any(40);
    const std::size_t spread = any(1) * any(50);
    std::vector<Slots> samples(1 + any(4), Slots(frames));
    std::vector<std::size_t> largest(samples.size(), 0);
    OgawaWriter out(path_);
    for (std::size_t i = 0; i < samples.size() * frames; ++i) {
      const std::size_t mesh = byMesh ? i / frames : i % samples.size();
      const std::size_t size = 5 + any(spread);
      if (any(9) == 0) out.Data(std::string(any(100'000), 'x'));
      samples[mesh][byMesh ? i % frames : i / samples.size()] = Points(out, size);
      largest[mesh] = std::max(largest[mesh], size);
    }
    for (Slots& one : samples) {
      if (any(3) == 0) std::reverse(one.begin(), one.end());
      if (any(3) == 0) one.push_back(one.front());
    }
    Finish(out, samples);

    AlembicInterface archive(true);
    ASSERT_TRUE(archive.Open(path_.c_str(), 1)) << archive.GetErrorString();
    for (unsigned int mesh = 0; mesh < samples.size(); ++mesh) {
      EXPECT_EQ(archive.GetChannelBufferLength(mesh), largest[mesh]) << mesh;
    }
    EXPECT_TRUE(archive.Verify(nullptr, nullptr));
  }
}

TEST_F(AlembicMeshes, HaveTheirLargestSampleFoundWithFewCalls) {
  std::vector<Slots> samples(3, Slots(100'000));
  for (std::size_t i = 0; i < 300'000; ++i) samples[i % 3][i / 3] = Points(out_, 4);
  Finish(out_, samples);
  ASSERT_NO_FATAL_FAILURE(Open(path_));
  for (const unsigned int mesh : {0u, 1u}) {
    const unsigned long calls = SystemCallCount();
    ASSERT_EQ(archive_.GetChannelBufferLength(mesh), 4u);
    EXPECT_LT(SystemCallCount() - calls, 1000u);
  }
}

// Blocks that overlap, which no writer makes: a sample longer than the next block allows is neither
// cut in silence nor taken for sound.
TEST_F(AlembicMeshes, OfOverlappingSamplesAreRefused) {
  const auto first = Points(out_, 2);
  const auto second = Points(out_, 5);
  const auto third = second + 8 + 16 + 2 * 12;  // in the values of the second
  Finish(out_, {{first, second, third}});
  Bytes bytes = ReadBytes(path_);
  const auto at = static_cast<std::size_t>(third & ~OgawaWriter::kDataBit);
  std::fill_n(bytes.begin() + std::ptrdiff_t(at), 8, std::uint8_t{0});
  bytes[at] = 16 + 12;
  WriteBytes(path_, bytes);

  ASSERT_NO_FATAL_FAILURE(Open(path_));
  EXPECT_EQ(archive_.GetChannelBufferLength(0), 2u);
  float values[15];
  EXPECT_FALSE(archive_.GetChannelBuffer(0, values, 5, KelTime::FromFrame(1, {24, 1})));
  EXPECT_STREQ(archive_.GetErrorString(), "a sample of 60 bytes reaches into another block");
  EXPECT_FALSE(archive_.Verify(nullptr, nullptr));
}

// The sample that the format's own library selects for a time. At the end of a cycle that one's
// tolerance is a fraction of the cycle; here it is the same number of seconds everywhere.
TEST(AlembicTimeSampling, FindsTheSampleAtATime) {
  std::ifstream in(TestData("abc/time_lookup.expected.json"));
  for (const auto& entry : nlohmann::json::parse(in)) {
    const double acyclic = std::numeric_limits<double>::max() / 32;
    const auto sampling =
        TimeSampling::FromStored(entry.value("period", acyclic), entry["times"], 0);
    const std::uint32_t count = entry["numSamples"];
    for (const auto& query : entry["queries"]) {
      const double seconds = query[0];
      const std::uint32_t expected = query[1];
      const bool endsCycle =
          entry["type"] == "cyclic" && (expected + 1) % sampling.times.size() == 0;
      const double early = endsCycle ? sampling.TimeOf(expected + 1) - seconds : 0;
      if (early > 0 && early <= 1e-5) continue;
      const std::uint32_t sample = count > 0 ? sampling.FloorSample(seconds, count) : 0;
      EXPECT_EQ(sample, expected) << entry["type"] << " " << query;
    }
  }
}

// However long a cycle is, its end has the tolerance of every other sample.
TEST(AlembicTimeSampling, ToleratesSecondsAtTheEndOfACycle) {
  for (const double period : {1 / 48.0, 1.0, 1000.0}) {
    const auto sampling = TimeSampling::FromStored(period, {0, period / 2}, 0);
    for (std::uint32_t sample = 1; sample < 9; ++sample) {
      const double time = sampling.TimeOf(sample);
      EXPECT_EQ(sampling.FloorSample(time, 10), sample) << period;
      EXPECT_EQ(sampling.FloorSample(time - 9e-6, 10), sample) << period;
      EXPECT_EQ(sampling.FloorSample(time - 1.1e-5, 10), sample - 1) << period;
    }
  }
}

TEST(AlembicPlainType, ConvertsToTheNearestFloat) {
  const auto converted = [](EPlainType type, std::uint64_t bits) {
    float value = -1;
    ConvertToFloats(type, &bits, 1, &value);
    return value;
  };
  // By way of double it would be rounded twice, and down.
  EXPECT_EQ(converted(EPlainType::eUint64, 0x8000008000000001), 0x1.000002p63f);
  EXPECT_EQ(converted(EPlainType::eFloat64, std::bit_cast<std::uint64_t>(0x1.ffffffp127)),
            INFINITY);
  EXPECT_EQ(converted(EPlainType::eFloat16, 0x0001), 0x1p-24f);
}

TEST_F(AlembicReading, SamplesComeAsStored) {
  const std::uint64_t ids[] = {1ULL << 63, 7};
  const std::uint16_t halves[] = {0x3c00, 0x0001, 0xfc00};
  const auto one = out_.Sample(ids, sizeof ids);
  const auto two = out_.Sample(halves, sizeof halves);
  const auto ofOne = out_.ArraySamples({one});
  const auto ofTwo = out_.ArraySamples({two});
  const auto ofAll = out_.ArraySamples({one, two, one});
  using enum EPlainType;
  const auto geom = out_.Compound(
      {{.name = "ids", .type = eUint64, .sampleCount = 9, .constant = true, .slot = ofOne},
       {.name = "halves", .type = eFloat16, .extent = 3, .sampleCount = 1, .slot = ofTwo},
       {.name = "same", .type = eInt64, .sampleCount = 1, .slot = ofOne},
       {.name = "bytes", .type = eUint8, .sampleCount = 3, .slot = ofAll}});
  out_.Finish(out_.Object(geom, {}));
  ASSERT_NO_FATAL_FAILURE(Open(path_));

  std::uint64_t stored[3] = {};
  unsigned int count = 3;
  EXPECT_TRUE(archive_.ReadSample(0, 8, stored, count) && count == 2);
  EXPECT_TRUE(stored[0] == ids[0] && stored[1] == 7);
  count = 1;
  EXPECT_FALSE(archive_.ReadSample(0, 0, stored, count)) << "less room than the sample takes";
  count = 3;
  EXPECT_FALSE(archive_.ReadSample(0, 9, stored, count)) << "no such sample";
  EXPECT_FALSE(archive_.ReadSample(0, 0, nullptr, count));
  float floats[3] = {5, 5, 5};
  EXPECT_TRUE(archive_.GetChannelBuffer(0, floats, 1, KelTime()));
  EXPECT_TRUE(floats[0] == 0x1p63f && floats[1] == 5) << "the caller's room";
  count = 1;
  EXPECT_TRUE(archive_.ReadSample(1, 0, floats, count) && count == 1);
  EXPECT_TRUE(floats[0] == 1 && floats[1] == 0x1p-24f && std::isinf(floats[2]));

  unsigned int first = 9, last = 9;
  unsigned long long ofIds = 0, ofSame = 0;
  EXPECT_TRUE(archive_.GetSampleRun(0, 5, first, last, ofIds) && first == 0 && last == 8);
  EXPECT_TRUE(archive_.GetSampleRun(2, 0, first, last, ofSame) && ofSame == ofIds);
  EXPECT_TRUE(archive_.GetSampleRun(3, 1, first, last, ofSame) && first == 1 && last == 1);
  EXPECT_EQ(archive_.GetProblemCount(), 0u);
}

TEST_F(AlembicReading, TellsWhatAnArchiveHolds) {
  ASSERT_NO_FATAL_FAILURE(Open(TestData("abc/tiny.abc")));
  std::string lines;
  EXPECT_TRUE(archive_.ListTree(AddLine, &lines));
  EXPECT_EQ(lines,
            "/\n"
            "  dot\n"
            "    P  array float32[3]  point  4 samples, 24 fps from 0.5 s\n"
            "    id  scalar int32  4 samples, constant, 24 fps from 0.5 s\n"
            "    tag  array string  1 sample\n");
}

}  // namespace
}  // namespace kelsdk::test
