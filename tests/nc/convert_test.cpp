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
                   {"scalars", zuCacheData::eNCFloatArray}};
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
  for (const unsigned int channel : {2u, 3u}) EXPECT_FALSE(ToPc2(channel)) << channel;
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

}  // namespace
}  // namespace kelsdk::nc
