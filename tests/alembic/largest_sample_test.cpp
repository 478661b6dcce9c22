// The largest sample of a channel is found without a read for each, and is the largest all the
// same.
#include <algorithm>
#include <random>

#include "backends/AlembicInterface.h"
#include "tests/alembic/ogawa_writer.h"
#include "tests/support/fixture.h"
#include "tests/support/hooks.h"

namespace kelsdk::test {
namespace {

using alembic::test::OgawaWriter;
using Slots = std::vector<std::uint64_t>;

class AlembicLargestSample : public FileTest {
 protected:
  static std::uint64_t Points(OgawaWriter& out, std::size_t points) {
    const std::vector<float> values(points * 3, 1);
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

  const std::string path_ = folder_.File("lengths.abc");
};

// Whatever the order of frames and meshes, with samples used again, out of order and far apart.
TEST_F(AlembicLargestSample, IsExactWhereverSamplesStand) {
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

TEST_F(AlembicLargestSample, TakesFewCalls) {
  std::vector<Slots> samples(3, Slots(100'000));
  OgawaWriter out(path_);
  for (std::size_t i = 0; i < 300'000; ++i) samples[i % 3][i / 3] = Points(out, 4);
  Finish(out, samples);
  AlembicInterface archive(true);
  ASSERT_TRUE(archive.Open(path_.c_str(), 1));
  for (const unsigned int mesh : {0u, 1u}) {
    const unsigned long calls = SystemCallCount();
    ASSERT_EQ(archive.GetChannelBufferLength(mesh), 4u);
    EXPECT_LT(SystemCallCount() - calls, 1000u);
  }
}

// Blocks that overlap, which no writer makes: a sample longer than the next block allows is neither
// cut in silence nor taken for sound.
TEST_F(AlembicLargestSample, OverlappingSamplesAreRefused) {
  OgawaWriter out(path_);
  const auto first = Points(out, 2);
  const auto second = Points(out, 5);
  const auto third = second + 8 + 16 + 2 * 12;  // in the values of the second
  Finish(out, {{first, second, third}});
  Bytes bytes = ReadBytes(path_);
  const auto at = static_cast<std::size_t>(third & ~OgawaWriter::kDataBit);
  std::fill_n(bytes.begin() + std::ptrdiff_t(at), 8, std::uint8_t{0});
  bytes[at] = 16 + 12;
  WriteBytes(path_, bytes);

  AlembicInterface archive(true);
  ASSERT_TRUE(archive.Open(path_.c_str(), 1)) << archive.GetErrorString();
  EXPECT_EQ(archive.GetChannelBufferLength(0), 2u);
  float values[15];
  EXPECT_FALSE(archive.GetChannelBuffer(0, values, 5, KelTime::FromFrame(1, {24, 1})));
  EXPECT_STREQ(archive.GetErrorString(), "a sample of 60 bytes reaches into another block");
  std::string lines;
  EXPECT_FALSE(archive.Verify(AddLine, &lines));
  EXPECT_NE(lines.find("reaches into another block"), std::string::npos) << lines;
}

}  // namespace
}  // namespace kelsdk::test
