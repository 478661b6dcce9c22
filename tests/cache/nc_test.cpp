#include <climits>
#include <functional>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

constexpr int kTypes = 7;
// Whether a channel of a type takes arrays of doubles, floats, integers.
constexpr bool kTakes[kTypes][3] = {
    {false, false, false}, {false, false, false}, {true, true, false}, {true, true, false},
    {false, false, true},  {true, true, false},   {true, true, false}};

class CacheNC : public CacheTest {
 protected:
  std::string Path() const { return folder_.File("shot.xml"); }

  unsigned int count_ = 0;
  double doubles_[6] = {0.1, 2, 3, 4, 5, 6};
  KelTime time_;
};

// Every array type is written to and read from a channel of every type, bit by bit.
TEST_F(CacheNC, EveryArrayMeetsEveryElementType) {
  std::vector<int> types;
  for (int type = 0; type < kTypes; ++type) types.insert(types.end(), 3, type);
  ASSERT_TRUE(object_->BeginNC(Path(), types));
  EXPECT_TRUE(cache_->BeginWriteAt(time_, nullptr));
  for (int channel = 0; channel < 3 * kTypes; ++channel) {
    const int form = channel % 3;
    const bool takes = kTakes[channel / 3][form];
    WithForm(form, [&](auto value) {
      decltype(value) values[6];
      for (auto& one : values) one = static_cast<decltype(value)>(form == 2 ? 7 : 0.1);
      EXPECT_EQ(cache_->Write(channel, time_, values, 2, &status_), takes) << channel;
      EXPECT_EQ(Status(), takes ? "" : "1 ") << channel;
    });
  }
  EXPECT_TRUE(cache_->EndWriteAt(nullptr));
  cache_->CloseFile(nullptr);

  OpenForRead(KelCache::eNCFormat, "shot.xml");
  for (int channel = 0; channel < 3 * kTypes; ++channel) {
    const int type = channel / 3;
    const int written = channel % 3;
    const bool isFloat = GetTypeIsFloat(static_cast<zuCacheData::zuCacheDataType>(type));
    const double stored = written == 2 ? 7 : written == 1 || isFloat ? double(0.1F) : 0.1;
    const size_t width = GetTypeLength(static_cast<zuCacheData::zuCacheDataType>(type));
    for (int form = 0; form < 3; ++form) {
      SCOPED_TRACE(std::to_string(channel) + " " + std::to_string(form));
      const bool read = kTakes[type][form] && kTakes[type][written];
      WithForm(form, [&](auto value) {
        using Value = decltype(value);
        std::vector<Value> values(7, Value(-1));
        std::vector<Value> expected = values;
        if (read) std::fill_n(expected.begin(), 2 * width, static_cast<Value>(stored));
        EXPECT_EQ(cache_->Read(channel, time_, values.data(), 2, &status_), read);
        EXPECT_EQ(Status(), kTakes[type][form] ? "" : "1 ");
        EXPECT_EQ(values, expected);
      });
    }
  }
}

TEST_F(CacheNC, SeveralChannelsNeedABlock) {
  ASSERT_TRUE(object_->BeginNC(Path(), {KelCache::eNCDoubleArray}));
  KelTime later(250 * kTick + kTick - 1);  // cut to its tick
  EXPECT_TRUE(cache_->Write(0, time_, doubles_, 2, nullptr));
  EXPECT_EQ(Outcome(cache_->Write(-1, later, doubles_, 2, &status_)), "");
  EXPECT_TRUE(cache_->Write(0, later, doubles_, 0, nullptr));
  EXPECT_TRUE(cache_->AddChannel("more", KelCache::eNCInt32Array, "", count_, nullptr));
  EXPECT_EQ(count_, 1u);
  EXPECT_EQ(Outcome(cache_->AddChannel("more", KelCache::eNCInt32Array, "", count_, &status_)), "");
  EXPECT_EQ(Outcome(cache_->Write(0, time_, doubles_, 2, &status_)), "1 BeginWriteAt not called");
  KelTime negative(-kTick - 1);
  EXPECT_TRUE(cache_->BeginWriteAt(negative, nullptr));
  EXPECT_TRUE(cache_->Write(0, negative, doubles_, 1, nullptr));
  EXPECT_TRUE(cache_->EndWriteAt(nullptr));
  EXPECT_FALSE(cache_->Write(0, negative, doubles_, 1, nullptr));
  EXPECT_TRUE(cache_->EndWriteAt(nullptr)) << "without a block too";
  cache_->CloseFile(nullptr);
  OpenForRead(KelCache::eNCFormat, "shot.xml");
  for (const int tick : {-1, 0, 250}) {
    EXPECT_TRUE(cache_->GetNextTimeWithData(KelTime((tick - 1) * kTick), time_, -1, nullptr));
    EXPECT_EQ(time_.Get(), tick * kTick);
  }
  EXPECT_EQ(cache_->GetDataCount(0, nullptr), 3u);
}

TEST_F(CacheNC, LimitsOfTimesCountsAndMemory) {
  float* none = nullptr;
  float values[6] = {42, 42, 42, 42, 42, 42};
  WriteNC("a.xml", {KelCache::eNCDoubleVectorArray}, {0});
  const unsigned int wraps = kWrapping / 2 + 0x80000000;  // x 3 x 8 bytes is 8 in 32 bits
  ASSERT_TRUE(object_->BeginNC(Path(), {KelCache::eNCDoubleVectorArray}));
  for (const long long units : {kBeyond, -kBeyond - kTick}) {
    KelTime beyond(units);
    EXPECT_EQ(Outcome(cache_->BeginWriteAt(beyond, &status_)), "3 ");
    EXPECT_EQ(Outcome(cache_->Write(0, beyond, doubles_, 2, &status_)), "3 ");
    EXPECT_EQ(Outcome(cache_->Read(0, beyond, doubles_, 2, &status_)), "3 ");
    EXPECT_EQ(Outcome(cache_->GetNextTimeWithData(beyond, beyond, 0, &status_)), "3 ");
  }
  EXPECT_EQ(Outcome(cache_->Write(0, time_, values, wraps, &status_)), "3 ");
  cache_->CloseFile(nullptr);

  OpenForRead(KelCache::eNCFormat, "a.xml");
  EXPECT_EQ(Outcome(cache_->Read(0, time_, values, wraps, &status_)), "3 ");
  EXPECT_EQ(Outcome(cache_->Read(0, time_, none, 1, &status_)), "3 ");
  EXPECT_EQ(Outcome(cache_->Read(0, time_, none, 0, &status_)), "") << "no room for the array";
  {
    const FailAllocation failure(1, EAllocations::eKelMalloc);
    EXPECT_FALSE(cache_->Read(0, time_, values, 1, &status_));
    status_.Clear();
  }
  EXPECT_EQ(values[0], 42) << "a read that fails leaves the caller's array";
  EXPECT_TRUE(cache_->Read(0, time_, values, 2, nullptr));
  EXPECT_EQ(values[2], 3);
  EXPECT_EQ(values[3], 0) << "what the array does not fill";
  object_->Name(KelCache::eAlembicFormat, TestData("abc/tiny.abc"));
  ASSERT_TRUE(cache_->OpenFileForRead(nullptr));
  EXPECT_EQ(Outcome(cache_->Read(0, time_, none, 2, &status_)), "3 ");
}

TEST_F(CacheNC, TimesOfRegularIrregularAndExtremeSamples) {
  const struct {
    std::vector<int> ticks;
    const char* rateStatus;
    int interval;
    bool regular;
  } rows[] = {
      {{-250, 0, 250}, "", 250, true},
      {{-7, 2000}, "", 2007, true},
      {{3}, "", 200, true},
      {{0, 250, 600}, "1 Sampling type for this channel is irregular", 0, false},
      {{INT_MIN, INT_MAX}, "1 Error retrieving channel sampling rate", 0, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ticks[0]);
    WriteNC("shot.xml", {KelCache::eNCFloatArray}, row.ticks, 30);
    OpenForRead(KelCache::eNCFormat, "shot.xml");
    KelTime end;
    EXPECT_TRUE(cache_->GetAnimationRange(0, time_, end, nullptr));
    EXPECT_EQ(time_.Get(), row.ticks.front() * kTick);
    EXPECT_EQ(end.Get(), row.ticks.back() * kTick);
    KelTime next(-kBeyond);
    for (unsigned int i = 0; i < row.ticks.size(); ++i) {
      EXPECT_TRUE(cache_->GetDataTime(0, i, time_, nullptr));
      EXPECT_EQ(time_.Get(), row.ticks[i] * kTick);
      // The first tick of all has none before it.
      if (row.ticks[i] > INT_MIN) {
        EXPECT_TRUE(cache_->GetNextTimeWithData(next, next, i % 2 == 0 ? 0 : -1, nullptr));
        EXPECT_EQ(next, time_);
      }
      EXPECT_TRUE(cache_->GetChannelPointCount(0, time_, count_, nullptr));
      EXPECT_EQ(count_, 1u);
    }
    next.Set(5);
    EXPECT_EQ(Outcome(cache_->GetNextTimeWithData(end, next, -1, &status_)), "1 ");
    EXPECT_EQ(Outcome(cache_->GetDataTime(0, 9, next, &status_)), "1 ");
    EXPECT_EQ(next.Get(), 5) << "untouched";
    for (const long long units : {row.ticks.front() * kTick - 1, end.Get() + 1}) {
      EXPECT_EQ(Outcome(cache_->GetChannelPointCount(0, KelTime(units), count_, &status_)),
                "1 Specified time is out of range");
    }
    auto type = KelCache::eNCSamplingRegular;
    EXPECT_TRUE(cache_->GetChannelSamplingType(0, type, nullptr));
    EXPECT_EQ(type == KelCache::eNCSamplingRegular, row.regular);
    EXPECT_EQ(cache_->GetChannelSamplingRate(0, time_, &status_), *row.rateStatus == 0);
    EXPECT_EQ(Status(), row.rateStatus);
    if (row.interval != 0) {
      EXPECT_EQ(time_.Get(), row.interval * kTick);
    }
    cache_->CloseFile(nullptr);
  }
}

TEST_F(CacheNC, TextsAreTheCallersWholeOrNotAtAll) {
  WriteNC("a.xml", {KelCache::eNCFloatArray}, {0});
  OpenForRead(KelCache::eNCFormat, "a.xml");
  object_->Name(KelCache::eNCFormat, "unused", "caches\\shot1\\body.xml");
  KelString other;
  const struct {
    const char* failure;  // of the first allocation, which is the library's
    std::string text;
    std::function<bool(KelString& text)> call;
  } rows[] = {
      {"1 Failed to get the cache file's name", folder_.File("a.ncx"),
       [&](KelString& text) { return cache_->GetCacheDataFileName(0, other, text, &status_); }},
      {"1 Failed to get the cache file's name", "caches/shot1/a.ncx",
       [&](KelString& text) { return cache_->GetCacheDataFileName(0, text, other, &status_); }},
      {"1 Error retrieving channel interpretation data", "words",
       [&](KelString& text) { return cache_->GetChannelInterpretation(0, text, &status_); }},
      {"", "0", [&](KelString& text) { return cache_->GetChannelName(0, text, &status_); }},
  };
  for (const auto& row : rows) {
    bool reached = true;
    for (unsigned long n = 1; reached; ++n) {
      KelString text("kept");
      const FailAllocation failure(n, EAllocations::eKelMalloc);
      const bool done = row.call(text);
      reached = failure.Reached();
      EXPECT_TRUE(done || reached) << Status();
      EXPECT_EQ(text.Buffer(), done ? row.text : "kept");
      if (n == 1) {
        EXPECT_EQ(Status(), row.failure);
      }
    }
  }
}

}  // namespace
}  // namespace kelsdk::test
