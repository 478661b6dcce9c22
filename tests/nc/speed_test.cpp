#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

class Speed : public NcTest {
 protected:
  static constexpr unsigned int kChannels = 8;

  static CacheSpec ManyChannels(int frames, std::size_t elements) {
    CacheSpec spec;
    static const char* const kNames[] = {"a", "b", "c", "d", "e", "f", "g", "h"};
    for (const char* name : kNames) spec.channels.push_back({name, zuCacheData::eNCFloatArray});
    for (int frame = 0; frame < frames; ++frame) {
      for (unsigned int c = 0; c < kChannels; ++c) {
        spec.samples.push_back(
            {c, frame * 250,
             MakeArray(zuCacheData::eNCFloatArray, elements, frame * 10 + static_cast<int>(c))});
      }
    }
    return spec;
  }

  // Reads some channels at each of some frames; the system calls that took.
  static unsigned long Play(Cache& cache, unsigned int channels, int from, int to,
                            std::size_t elements) {
    std::vector<float> array(elements);
    const unsigned long before = test::SystemCallCount();
    for (int frame = from; frame < to; ++frame) {
      for (unsigned int c = 0; c < channels; ++c) {
        void* data = array.data();
        auto count = static_cast<unsigned int>(elements);
        EXPECT_TRUE(cache.getArrayDataAtTime(c, frame * 250, data, count));
      }
    }
    return test::SystemCallCount() - before;
  }
};

TEST_F(Speed, SteadyReadsAndWritesAllocateNothing) {
  for (const char* tag : {"ncx", "ncc"}) {
    for (const auto format : {Cache::eSingleFile, Cache::eFilePerFrame}) {
      CacheSpec spec = ManyChannels(40, 500);
      spec.tag = tag;
      spec.format = format;
      ASSERT_TRUE(Write(Folder(), "shot", spec));
      Cache cache;
      ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
      cache.setOptimizeMultiChannelRead(true);
      Play(cache, kChannels, 0, 10, 500);
      const unsigned long before = test::AllocationCount();
      Play(cache, kChannels, 10, 40, 500);
      EXPECT_EQ(test::AllocationCount() - before, 1u) << "more than Play's own array, " << tag;

      Cache writer;
      spec.samples.resize(10 * kChannels);
      ASSERT_TRUE(WriteOpen(writer, Folder(), "shot", spec));
      std::vector<float> array(500);
      unsigned long allocations = 0;
      for (int frame = 10; frame < 200; ++frame) {
        array[0] = static_cast<float>(frame);
        const unsigned long start = test::AllocationCount();
        writer.beginWriteAtTime(frame * 250);
        for (unsigned int c = 0; c < kChannels; ++c) {
          ASSERT_TRUE(writer.addArrayData(c, frame * 250, array.data(), 500));
        }
        writer.endWriteAtTime();
        allocations += test::AllocationCount() - start;
      }
      EXPECT_EQ(allocations, 0u) << tag << format << " writing";
      EXPECT_TRUE(writer.endFileWrite());
    }
  }
}

TEST_F(Speed, SystemCallsOfReading) {
  for (const auto format : {Cache::eSingleFile, Cache::eFilePerFrame}) {
    CacheSpec spec = ManyChannels(30, 500);
    spec.format = format;
    ASSERT_TRUE(Write(Folder(), "shot", spec));
    // A frame's file is opened, asked its size and its end is read.
    const unsigned long perTime = format == Cache::eSingleFile ? 0 : 3;
    for (const bool groups : {false, true}) {
      for (const unsigned int channels : {1u, kChannels}) {
        Cache cache;
        ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
        cache.setOptimizeMultiChannelRead(groups);
        Play(cache, channels, 0, 5, 500);
        const unsigned long calls = groups ? 1 : channels;
        EXPECT_EQ(Play(cache, channels, 5, 30, 500), 25 * (perTime + calls))
            << groups << ", " << channels << " channels";
      }
    }
  }
}

TEST_F(Speed, GroupsFollowWhatTheCallerReads) {
  const CacheSpec spec = ManyChannels(30, 500);
  ASSERT_TRUE(Write(Folder(), "shot", spec));
  Cache cache;
  ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
  cache.setOptimizeMultiChannelRead(true);
  Contents expected = ContentsOf(spec);
  for (int frame = 0; frame < 30; ++frame) {
    // Another set and order at every time, some channels twice.
    for (const int step : {3, 1, 5, 1, 7}) {
      const auto channel = static_cast<unsigned int>((frame * step + step) % 8);
      EXPECT_EQ(ReadArray(cache, channel, frame * 250), expected[channel][frame * 250]);
    }
  }
}

TEST_F(Speed, OneSystemCallForEachArrayWritten) {
  CacheSpec spec = ManyChannels(5, 500);
  Cache writer;
  ASSERT_TRUE(WriteOpen(writer, Folder(), "shot", spec));
  std::vector<float> array(500);
  const unsigned long before = test::SystemCallCount();
  for (int frame = 5; frame < 15; ++frame) {
    writer.beginWriteAtTime(frame * 250);
    for (unsigned int c = 0; c < kChannels; ++c) {
      array[0] = static_cast<float>(frame);
      ASSERT_TRUE(writer.addArrayData(c, frame * 250, array.data(), 500));
    }
    writer.endWriteAtTime();
  }
  // And one that makes the block whole.
  EXPECT_EQ(test::SystemCallCount() - before, 10u * (kChannels + 1));
  EXPECT_TRUE(writer.endFileWrite());
}

}  // namespace
}  // namespace kelsdk::nc
