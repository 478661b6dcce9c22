#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

class CacheFetch : public CacheTest {
 protected:
  bool Fetch(KelTime time = KelTime(), unsigned int channel = 0) {
    values_ = reinterpret_cast<float*>(1);
    length_ = 77;
    const bool fetched = cache_->Read(&values_, length_, time, channel);
    if (!fetched) {
      EXPECT_EQ(values_, nullptr);
      EXPECT_EQ(length_, 0u);
    }
    return fetched;
  }

  float* values_ = nullptr;
  unsigned int length_ = 0;
};

TEST_F(CacheFetch, EveryElementTypeAsFloats) {
  std::vector<Layout> layouts;
  for (int type = 0; type < 7; ++type) layouts.push_back({type, 5});
  layouts.push_back({KelCache::eNCFloatArray, 0});
  const unsigned int widths[] = {0, 0, 1, 3, 1, 1, 3, 0, 0};
  WriteNC("a.xml", layouts, {0}, 24, 16777217);  // 2^24 + 1 is no float
  OpenForRead(KelCache::eNCFormat, "a.xml");
  for (unsigned int channel = 0; channel < std::size(widths); ++channel) {
    EXPECT_EQ(Fetch(KelTime(), channel), widths[channel] != 0) << channel;
    if (widths[channel] == 0) continue;
    EXPECT_EQ(length_, 5 * widths[channel]);
    EXPECT_EQ(values_[0], 16777216.0F);
    EXPECT_EQ(values_[length_ - 1], static_cast<float>(16777216 + length_));
  }
  EXPECT_FALSE(Fetch(KelTime(kBeyond), 5));
  EXPECT_FALSE(Fetch(KelTime(-2 * kTick), 5));
}

// The buffers grow from layout to layout and are used again. Wherever memory runs out, the layout
// that stays is one that they really have.
TEST_F(CacheFetch, BuffersHoldEveryLayoutInTurn) {
  const std::vector<Layout> layouts = {{5, 10}, {5, 11}, {4, 11}, {4, 20},
                                       {3, 50}, {6, 7},  {2, 500}};
  WriteNC("a.xml", layouts);
  unsigned long n = 0;
  for (bool failed = true; failed; ++n) {
    Renew();
    OpenForRead(KelCache::eNCFormat, "a.xml");
    const FailAllocation failure(n + 1, EAllocations::eKelMalloc);
    for (unsigned int channel = 0; channel < layouts.size(); ++channel) {
      ASSERT_TRUE(Fetch(KelTime(), channel) || Fetch(KelTime(), channel)) << "one failure alone";
      // Touch all of it: the address sanitizer sees a byte too far.
      for (unsigned int i = 0; i < length_; ++i) ASSERT_EQ(values_[i], static_cast<float>(i + 1));
      const float* const buffer = values_;
      const unsigned long allocations = AllocationCount();
      EXPECT_TRUE(Fetch(KelTime(), channel) && values_ == buffer);
      EXPECT_EQ(AllocationCount(), allocations);
    }
    failed = failure.Reached();
  }
  EXPECT_GT(n, 5u);
}

}  // namespace
}  // namespace kelsdk::test
