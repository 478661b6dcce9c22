#include "tests/nc/nc_test.h"

namespace kelsdk::nc {
namespace {

class Speed : public NcTest {
 protected:
  static constexpr unsigned int kChannels = 8;
  static constexpr unsigned int kElements = 500;
  // By then each place among the arrays that others are predicted from has been taken.
  static constexpr int kWarm = 17;

  static CacheSpec ManyChannels(int frames) {
    constexpr EType kType = zuCacheData::eNCFloatArray;
    CacheSpec spec;
    for (const char* name : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
      spec.channels.push_back({name, kType});
    }
    for (unsigned int i = 0; i < unsigned(frames) * kChannels; ++i) {
      const int frame = int(i / kChannels);
      spec.samples.push_back({i % kChannels, frame * 250, MakeArray(kType, kElements, frame)});
    }
    return spec;
  }

  float array_[kElements] = {};
};

TEST_F(Speed, ReadingAllocatesNothingAndCallsOnceForAGroup) {
  for (const Form& form : kForms) {
    ASSERT_TRUE(Write(Folder(), "shot", form.Of(ManyChannels(40))));
    // A frame's file is opened, asked its size and its end is read.
    const unsigned long perTime = form.format == Cache::eSingleFile ? 0 : 3;
    for (const bool groups : {false, true}) {
      for (const unsigned int channels : {1u, kChannels}) {
        SCOPED_TRACE(form.Name() + std::to_string(channels) + (groups ? " in groups" : " singly"));
        Cache cache;
        ASSERT_TRUE(Open(cache));
        cache.setOptimizeMultiChannelRead(groups);
        const auto play = [&](int frame) {
          for (unsigned int c = 0; c < channels; ++c) {
            void* data = array_;
            unsigned int count = kElements;
            EXPECT_TRUE(cache.getArrayDataAtTime(c, frame * 250, data, count));
          }
        };
        // What is read along differs from the first time to the second.
        for (int frame = 0; frame < 80; ++frame) play(frame % 40);
        test::ExpectCost(0, 40, perTime + (groups ? 1 : channels), play);
      }
    }
  }
}

TEST_F(Speed, WritingAllocatesNothingAndCallsOnceForABlockOfSmallArrays) {
  std::memcpy(array_, MakeArray(zuCacheData::eNCFloatArray, kElements, 0).data(), sizeof array_);
  for (const Form& form : kForms) {
    SCOPED_TRACE(form.Name());
    Cache cache;
    ASSERT_TRUE(WriteOpen(cache, Folder(), "shot", form.Of(ManyChannels(kWarm))));
    // A frame's file is made, locked and finished as well.
    test::ExpectCost(kWarm, 200, form.format == Cache::eSingleFile ? 1 : 4, [&](int frame) {
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
