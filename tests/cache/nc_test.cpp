#include <climits>
#include <thread>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

constexpr int kTypes = 7;
// Whether a channel of a type takes arrays of doubles, floats, integers.
constexpr bool kTakes[kTypes][3] = {{0, 0, 0}, {0, 0, 0}, {1, 1, 0}, {1, 1, 0},
                                    {0, 0, 1}, {1, 1, 0}, {1, 1, 0}};

constexpr int kOdd = (1 << 24) + 1;  // which is no float

class CacheNC : public CacheTest {
 protected:
  bool Fetch(unsigned int channel) { return cache_->Read(&values_, length_, time_, channel); }

  float* values_ = nullptr;
  unsigned int length_ = 0;
  unsigned int count_ = 0;
  KelTime time_;
};

// Every array type is written to and read from a channel of every type, bit by bit, and fetched as
// floats.
TEST_F(CacheNC, EveryArrayMeetsEveryElementType) {
  std::vector<int> types;
  for (int type = 0; type < kTypes; ++type) types.insert(types.end(), 3, type);
  ASSERT_TRUE(object_->BeginNC(folder_.File("shot.xml"), types));
  EXPECT_TRUE(cache_->BeginWriteAt(time_, nullptr));
  for (int channel = 0; channel < 3 * kTypes; ++channel) {
    const int form = channel % 3;
    WithForm(form, [&](auto value) {
      decltype(value) values[6];
      for (auto& one : values) one = static_cast<decltype(value)>(form == 2 ? kOdd : 0.1);
      EXPECT_EQ(Outcome(cache_->Write(channel, time_, values, 2, &status_)),
                kTakes[channel / 3][form] ? "done" : "1 ")
          << channel;
    });
  }
  EXPECT_TRUE(cache_->EndWriteAt(nullptr));
  cache_->CloseFile(nullptr);

  OpenForRead(KelCache::eNCFormat, "shot.xml");
  for (int channel = 0; channel < 3 * kTypes; ++channel) {
    const int type = channel / 3;
    const int written = channel % 3;
    const bool isFloat = GetTypeIsFloat(static_cast<zuCacheData::zuCacheDataType>(type));
    const double stored = written == 2 ? kOdd : written == 1 || isFloat ? double(0.1F) : 0.1;
    const size_t width = GetTypeLength(static_cast<zuCacheData::zuCacheDataType>(type));
    const bool holds = kTakes[type][written];
    EXPECT_EQ(Fetch(unsigned(channel)), holds) << channel;
    EXPECT_EQ(std::vector<float>(values_, values_ + length_),
              std::vector<float>(holds ? 2 * width : 0, static_cast<float>(stored)));
    for (int form = 0; form < 3; ++form) {
      SCOPED_TRACE(std::to_string(channel) + " " + std::to_string(form));
      const bool read = kTakes[type][form] && holds;
      WithForm(form, [&](auto value) {
        using Value = decltype(value);
        std::vector<Value> values(9, Value(-1));
        std::vector<Value> expected = values;
        // Two elements were written; the room of a third is zero.
        if (read) {
          std::fill_n(expected.begin(), 3 * width, Value(0));
          std::fill_n(expected.begin(), 2 * width, static_cast<Value>(stored));
        }
        EXPECT_EQ(cache_->Read(channel, time_, values.data(), 3, &status_), read);
        EXPECT_EQ(Status(), kTakes[type][form] ? "" : "1 ");
        EXPECT_EQ(values, expected);
      });
    }
  }
}

TEST_F(CacheNC, TimesOfRegularIrregularAndExtremeSamples) {
  const struct {
    std::vector<int> ticks;
    const char* rate;
    int interval;
  } rows[] = {
      {{-250, 0, 250}, "done", 250},
      {{3}, "done", 200},
      {{0, 250, 600}, "1 Sampling type for this channel is irregular", 0},
      {{INT_MIN + 1, INT_MAX}, "1 Error retrieving channel sampling rate", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ticks[0]);
    WriteNC("shot.xml", {KelCache::eNCFloatArray}, row.ticks, 30);
    OpenForRead(KelCache::eNCFormat, "shot.xml");
    KelTime next(-kBeyond), start;
    for (unsigned int i = 0; i < row.ticks.size(); ++i) {
      EXPECT_TRUE(cache_->GetDataTime(0, i, time_, nullptr));
      EXPECT_EQ(time_.Get(), row.ticks[i] * kTick);
      EXPECT_TRUE(cache_->GetNextTimeWithData(next, next, i % 2 == 0 ? 0 : -1, nullptr));
      EXPECT_EQ(next, time_);
    }
    EXPECT_FALSE(cache_->GetNextTimeWithData(next, next, -1, nullptr));
    EXPECT_TRUE(cache_->GetAnimationRange(0, start, time_, nullptr));
    EXPECT_TRUE(start.Get() == row.ticks[0] * kTick && time_ == next);
    EXPECT_TRUE(cache_->GetChannelPointCount(0, start, count_, nullptr) && count_ == 1);
    EXPECT_EQ(Outcome(cache_->GetChannelPointCount(0, next + KelTime(1), count_, &status_)),
              "1 Specified time is out of range");
    EXPECT_EQ(Outcome(cache_->GetChannelSamplingRate(0, time_, &status_)), row.rate);
    EXPECT_TRUE(row.interval == 0 || time_.Get() == row.interval * kTick);
    cache_->CloseFile(nullptr);
  }
}

// The buffers grow from layout to layout and are used again. Wherever memory runs out, the layout
// that stays is one that they really have.
TEST_F(CacheNC, BuffersHoldEveryLayoutInTurn) {
  const std::vector<Layout> layouts = {{5, 10}, {5, 11}, {4, 11}, {4, 20},
                                       {3, 50}, {6, 7},  {2, 500}};
  WriteNC("a.xml", layouts);
  unsigned long n = 0;
  for (bool failed = true; failed; ++n) {
    Renew();
    OpenForRead(KelCache::eNCFormat, "a.xml");
    const FailAllocation failure(n + 1, EAllocations::eKelMalloc);
    for (unsigned int channel = 0; channel < layouts.size(); ++channel) {
      ASSERT_TRUE(Fetch(channel) || Fetch(channel)) << "one failure alone";
      // Touch all of it: the address sanitizer sees a byte too far.
      for (unsigned int i = 0; i < length_; ++i) ASSERT_EQ(values_[i], static_cast<float>(i + 1));
      const float* const buffer = values_;
      const unsigned long allocations = AllocationCount();
      EXPECT_TRUE(Fetch(channel) && values_ == buffer);
      EXPECT_EQ(AllocationCount(), allocations);
    }
    failed = failure.Reached();
  }
  EXPECT_GT(n, 5u);
}

// Objects on threads of their own share nothing: the thread sanitizer has the last word.
TEST_F(CacheNC, SeparateObjectsOnSeparateThreads) {
  WriteNC("shared.xml", {KelCache::eNCDoubleArray});
  const auto body = [this](int thread) {
    const std::string own = std::to_string(thread) + ".xml";
    const std::pair<KelCache::EFileFormat, std::string> files[] = {
        {KelCache::ePC2Format, TestData("pc2/arm_tube.pc2")},
        {KelCache::eAlembicFormat, TestData("abc/mesh_24fps.abc")},
        {KelCache::eNCFormat, folder_.File("shared.xml")},
        {KelCache::eNCFormat, folder_.File(own)}};
    for (int round = 0; round < 5; ++round) {
      WriteNC(own, {KelCache::eNCFloatVectorArray}, {0, 250}, 24, thread);
      for (const auto& [format, path] : files) {
        float* values = nullptr;
        unsigned int length = 0;
        CacheObject cache(format, path);
        EXPECT_TRUE(cache->OpenFileForRead(nullptr) && cache->Read(&values, length, KelTime(), 0));
        if (path != files[3].second) continue;
        EXPECT_EQ(*values, float(thread));
        EXPECT_TRUE(cache->ConvertFromNCToPC2(24, 0, nullptr));
      }
    }
  };
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) threads.emplace_back(body, thread);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace kelsdk::test
