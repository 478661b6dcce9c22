#include <filesystem>

#include "backends/zuPointCache2IO.h"
#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

class Convert : public NcTest {
 protected:
  // A file of ten points whose samples are of the seeds.
  void WritePc2(const std::vector<int>& seeds, float start, float rate) const {
    zuPointCache2IO file;
    ASSERT_TRUE(file.initialize(pc2_.c_str(), zuPointCache2IO::writeMode));
    ASSERT_TRUE(file.beginWriteData(10, static_cast<int>(seeds.size()), start, rate));
    int sample = 0;
    for (const int seed : seeds) {
      const Bytes array = MakeArray(zuCacheData::eNCFloatVectorArray, 10, seed);
      float floats[30];
      std::memcpy(floats, array.data(), array.size());
      ASSERT_TRUE(file.writeSample(sample++, floats));
    }
    ASSERT_TRUE(file.endWriteData());
  }

  bool ToPc2(unsigned int channel) const {
    return Cache::convertToPc2(pc2_.c_str(), Folder().c_str(), "shot", channel, 250);
  }

  const std::string pc2_ = folder_.File("shot.pc2");
};

TEST_F(Convert, ChannelsOfAnyPrecisionAndRhythmButOfVectors) {
  CacheSpec spec;
  spec.channels = {{"d", zuCacheData::eNCDoubleVectorArray},
                   {"odd", zuCacheData::eNCFloatVectorArray},
                   {"counts", zuCacheData::eNCFloatVectorArray},
                   {"scalars", zuCacheData::eNCFloatArray},
                   {"none", zuCacheData::eNCFloatVectorArray}};
  for (const int tick : {0, 250, 500, 1250, 1300}) {
    const auto add = [&](unsigned int channel, std::size_t count) {
      spec.samples.push_back({channel, tick, MakeArray(spec.channels[channel].type, count, tick)});
    };
    if (tick <= 500) add(0, 10);
    if (tick != 500) add(1, 10);
    add(2, tick == 500 ? 9 : 10);
    add(3, 10);
  }
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  for (const unsigned int channel : {2u, 3u, 4u}) EXPECT_FALSE(ToPc2(channel)) << channel;
  EXPECT_FALSE(test::Exists(pc2_));
  // Of the irregular channel a sample for each frame.
  const std::vector<int> held[] = {{0, 250, 500}, {0, 250, 250, 250, 250, 1250}};
  for (unsigned int channel = 0; channel < 2; ++channel) {
    WritePc2(held[channel], 0, 1);
    const Bytes expected = test::ReadBytes(pc2_);
    ASSERT_TRUE(ToPc2(channel));
    EXPECT_EQ(test::ReadBytes(pc2_), expected) << channel;
  }
}

TEST_F(Convert, TimesThatNoTickCanHoldWriteNothing) {
  // Less than a tick apart, past the last tick, no number, at no time; and cut short.
  const float times[][2] = {{0, 0.003f}, {1e7f, 1}, {0, std::nanf("")}, {INFINITY, 1}, {0, 1}};
  for (const auto& [start, rate] : times) {
    WritePc2({0, 1, 2}, start, rate);
    if (start == 0 && rate == 1) std::filesystem::resize_file(pc2_, 32 + 3 * 120 - 1);
    EXPECT_FALSE(Cache::convertFromPc2(pc2_.c_str(), Folder().c_str(), "fresh", Cache::eSingleFile,
                                       "ncx", 250))
        << start << " by " << rate;
    EXPECT_EQ(test::NamesIn(folder_.path()).size(), 1u);
  }
}

// Rates of no whole ticks, and parts: what comes back is what the whole one holds there.
TEST_F(Convert, PartsAndRatesOfNoWholeTicksComeBack) {
  const struct {
    float start;
    float rate;
    KelFrameRate frames;
    unsigned int first;
    unsigned int count;
  } rows[] = {
      {10, 1, {24000, 1001}, 0, ~0u}, {10, 1, {24000, 1001}, 2, 3}, {-3, 0.5f, {30000, 1001}, 1, 4},
      {0, 0.25f, {0, 0}, 0, ~0u},     {12, 0.25f, {0, 0}, 2, 5},    {1.5f, 2, {0, 0}, 7, 1},
      {0, 1, {0, 0}, 8, ~0u},
  };
  const std::vector<int> seeds = {5, 6, 7, 8, 9, 10, 11, 12};
  for (const auto& row : rows) {
    Cache::conversionOptions part;
    part.exactRate = row.frames;
    part.firstSample = row.first;
    part.sampleCount = row.count;
    const int ticks = row.frames.numerator == 30000 ? 200 : 250;
    WritePc2(seeds, row.start, row.rate);
    ASSERT_TRUE(Cache::convertFromPc2(pc2_.c_str(), Folder().c_str(), "shot", Cache::eSingleFile,
                                      "ncx", ticks, part, {}));
    const std::size_t count = std::min<std::size_t>(row.count, seeds.size() - row.first);
    WritePc2({seeds.begin() + row.first, seeds.begin() + row.first + static_cast<long>(count)},
             row.start + static_cast<float>(row.first) * row.rate, row.rate);
    const Bytes expected = test::ReadBytes(pc2_);
    part.firstSample = 0;
    const bool converted =
        Cache::convertToPc2(pc2_.c_str(), Folder().c_str(), "shot", 0, ticks, part, {});
    ASSERT_EQ(converted, count != 0);  // no sample, no points to count
    if (converted) {
      EXPECT_EQ(test::ReadBytes(pc2_), expected) << row.start << " by " << row.rate;
    }
  }
  Cache::conversionOptions wrong;
  wrong.exactRate = {24, 1};
  WritePc2(seeds, 0, 1);
  EXPECT_FALSE(Cache::convertFromPc2(pc2_.c_str(), Folder().c_str(), "shot", Cache::eSingleFile,
                                     "ncx", 200, wrong, {}));
  wrong = {};
  wrong.firstSample = 9;
  EXPECT_FALSE(Cache::convertFromPc2(pc2_.c_str(), Folder().c_str(), "shot", Cache::eSingleFile,
                                     "ncx", 250, wrong, {}));
}

}  // namespace
}  // namespace kelsdk::nc
