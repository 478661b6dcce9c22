#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

class Speed : public NcTest {
 protected:
  static constexpr unsigned int kChannels = 8;
  static constexpr unsigned int kElements = 500;

  static CacheSpec ManyChannels(int frames) {
    constexpr EType kType = zuCacheData::eNCFloatArray;
    CacheSpec spec;
    for (const char* name : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
      spec.channels.push_back({name, kType});
    }
    for (int frame = 0; frame < frames; ++frame) {
      for (unsigned int channel = 0; channel < kChannels; ++channel) {
        spec.samples.push_back({channel, frame * 250, MakeArray(kType, kElements, frame)});
      }
    }
    return spec;
  }

  // What `body` costs for each of some frames, at the most.
  template <typename Body>
  static void ExpectCost(int from, int to, unsigned long callsEach, Body&& body) {
    const unsigned long allocations = test::AllocationCount();
    const unsigned long calls = test::SystemCallCount();
    for (int frame = from; frame < to; ++frame) body(frame);
    EXPECT_EQ(test::AllocationCount() - allocations, 0u);
    EXPECT_LE(test::SystemCallCount() - calls, static_cast<unsigned long>(to - from) * callsEach);
  }

  float array_[kElements] = {};
};

TEST_F(Speed, ReadingAllocatesNothingAndCallsOnceForAGroup) {
  for (const Form& form : kForms) {
    ASSERT_TRUE(Write(Folder(), "shot", form.Of(ManyChannels(30))));
    // A frame's file is opened, asked its size and its end is read.
    const unsigned long perTime = form.format == Cache::eSingleFile ? 0 : 3;
    for (const bool groups : {false, true}) {
      for (const unsigned int channels : {1u, kChannels}) {
        SCOPED_TRACE(form.Name() + std::to_string(channels) + (groups ? " in groups" : " singly"));
        Cache cache;
        ASSERT_TRUE(cache.initFileRead("shot", Folder().c_str()));
        cache.setOptimizeMultiChannelRead(groups);
        const auto play = [&](int frame) {
          for (unsigned int c = 0; c < channels; ++c) {
            void* data = array_;
            unsigned int count = kElements;
            EXPECT_TRUE(cache.getArrayDataAtTime(c, frame * 250, data, count));
          }
        };
        // What is read along differs from the first time to the second.
        for (int frame = 0; frame < 60; ++frame) play(frame % 30);
        ExpectCost(0, 30, perTime + (groups ? 1 : channels), play);
      }
    }
  }
}

TEST_F(Speed, WritingAllocatesNothingAndCallsOnceForABlockOfSmallArrays) {
  for (const Form& form : kForms) {
    SCOPED_TRACE(form.Name());
    Cache cache;
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", form.Of(ManyChannels(10))));
    // A frame's file is made, locked and finished as well.
    ExpectCost(10, 200, form.format == Cache::eSingleFile ? 1 : 4, [&](int frame) {
      array_[0] = static_cast<float>(frame);
      cache.beginWriteAtTime(frame * 250);
      for (unsigned int c = 0; c < kChannels; ++c) {
        EXPECT_TRUE(cache.addArrayData(c, frame * 250, array_, kElements));
      }
      cache.endWriteAtTime();
    });
    EXPECT_TRUE(cache.endFileWrite());
  }
}

}  // namespace
}  // namespace kelsdk::nc
