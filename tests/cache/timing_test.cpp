#include <limits>

#include "tests/cache/cache_test.h"

namespace kelsdk::test {
namespace {

constexpr long long kTick = 7697693;
constexpr long long kBeyond = kTick * 2147483648LL;  // the first time whose ticks do not fit

class Timing : public StandInTest {
 protected:
  std::string Outcome(int operation) {
    Soil();
    KelTime a;
    KelTime b;
    unsigned int count = 0;
    auto type = KelCache::eNCSamplingRegular;
    bool done = false;
    switch (operation) {
      case 0: done = cache_->GetAnimationRange(0, a, b, &status_); break;
      case 1: done = cache_->GetSamplingFrameRate(&status_) != 0.0; break;
      case 2: done = cache_->GetDataTime(0, 0, a, &status_); break;
      case 3: done = cache_->GetDataCount(0, &status_) != 0; break;
      case 4: done = cache_->GetNextTimeWithData(a, b, 0, &status_); break;
      case 5: done = cache_->GetChannelPointCount(0, a, count, &status_); break;
      case 6: done = cache_->GetChannelSampleCount(0, count, &status_); break;
      case 7: done = cache_->GetChannelSamplingType(0, type, &status_); break;
      default: done = cache_->GetChannelSamplingRate(0, a, &status_); break;
    }
    return std::to_string(done) + " " + std::to_string(status_.GetCode()) + " " +
           status_.GetErrorString();
  }
};

TEST_F(Timing, WhichFormatsAreServed) {
  const std::string invalid = std::string("0 1 ") + kInvalidFormatText;
  const std::string closed = std::string("0 1 ") + kNotOpenedText;
  const std::string done = "1 0 ";
  for (int operation = 0; operation <= 8; ++operation) {
    SCOPED_TRACE(operation);
    const bool servesAlembic = operation == 0 || operation == 6;
    const bool isRate = operation == 1;
    for (const int none : {0, 7}) {
      cache_->SetCacheFileFormat(static_cast<KelCache::EFileFormat>(none), nullptr);
      EXPECT_EQ(Outcome(operation), invalid);
    }
    cache_->SetCacheFileFormat(KelCache::ePC2Format, nullptr);
    EXPECT_EQ(Outcome(operation), isRate ? closed : invalid);
    cache_->SetCacheFileFormat(KelCache::eAlembicFormat, nullptr);
    EXPECT_EQ(Outcome(operation), servesAlembic || isRate ? closed : invalid);
    Open(KelCache::eAlembicFormat);
    EXPECT_EQ(Outcome(operation), servesAlembic ? done : isRate ? "0 0 " : invalid);
    cache_->CloseFile(nullptr);
    cache_->SetCacheFileFormat(KelCache::eNCFormat, nullptr);
    EXPECT_EQ(Outcome(operation), closed);
    Open(KelCache::eNCFormat);
    EXPECT_EQ(Outcome(operation), done);
    cache_->CloseFile(nullptr);
  }
}

TEST_F(Timing, FrameRatesAndTimePerFrame) {
  Soil();
  EXPECT_EQ(cache_->GetCacheTimePerFrame(&status_).Get(), 0);
  ExpectClear();
  Open(KelCache::eNCFormat);
  const struct {
    int ticks;
    double rate;
    long long perFrame;
  } cases[] = {{250, 24.0, 1924423250},
               {200, 30.0, 1539538600},
               {0, 0.0, 0},
               {-250, -24.0, -1924423250},
               {12000, 0.5, 0}};
  for (const auto& c : cases) {
    TheRecorder().ticksPerFrame = c.ticks;
    EXPECT_EQ(cache_->GetSamplingFrameRate(&status_), c.rate);
    ExpectClear();
    EXPECT_EQ(cache_->GetCacheTimePerFrame(nullptr).Get(), c.perFrame);
  }
  const struct {
    float rate;
    long long perFrame;
  } pc2[] = {{29.97F, 1592626137},
             {0.5F, 0},
             {1.0F, 46186158000},
             {std::numeric_limits<float>::quiet_NaN(), 0},
             {std::numeric_limits<float>::infinity(), 0}};
  for (const auto& c : pc2) {
    TheRecorder().sampleRate = c.rate;
    Open(KelCache::ePC2Format);
    EXPECT_EQ(cache_->GetCacheTimePerFrame(nullptr).Get(), c.perFrame) << c.rate;
    cache_->CloseFile(nullptr);
  }
  Open(KelCache::ePC2Format, true);
  EXPECT_EQ(cache_->GetSamplingFrameRate(&status_), 0.0);
  ExpectStatus(KelStatus::eFailure, kInvalidFlagText);
}

TEST_F(Timing, AnimationRange) {
  KelTime start;
  KelTime end;
  for (const auto format : {KelCache::eNCFormat, KelCache::eAlembicFormat}) {
    Open(format);
    EXPECT_FALSE(cache_->GetAnimationRange(-1, start, end, &status_));
    ExpectStatus(KelStatus::eInvalidParameter);
  }
  EXPECT_TRUE(cache_->GetAnimationRange(9, start, end, nullptr));
  EXPECT_EQ(start.Get(), 11);
  EXPECT_EQ(end.Get(), 22);
  TheRecorder().startTicks = -250;
  TheRecorder().endTicks = 2147483647;
  TheRecorder().refused = {"nc.getChannelStartTime"};
  cache_->SetCacheFileFormat(KelCache::eNCFormat, nullptr);
  EXPECT_TRUE(cache_->GetAnimationRange(9, start, end, &status_));
  ExpectClear();
  EXPECT_EQ(start.Get(), -250 * kTick);
  EXPECT_EQ(end.Get(), 2147483647 * kTick);
}

TEST_F(Timing, SamplesAndNextTimes) {
  Open(KelCache::eNCFormat);
  KelTime time(5);
  EXPECT_TRUE(cache_->GetDataTime(-1, 7, time, nullptr));
  EXPECT_EQ(time.Get(), 250 * kTick);
  EXPECT_TRUE(cache_->GetNextTimeWithData(KelTime(-7697694), time, -2, nullptr));
  EXPECT_TRUE(cache_->GetNextTimeWithData(KelTime(7697692), time, -1, nullptr));
  EXPECT_EQ(time.Get(), 2 * kTick);
  EXPECT_EQ(TheRecorder().Take(),
            "nc.getDataTime(4294967295, 7); nc.getNextTimeWithData(4294967294, -1); "
            "nc.getNextTimeWithDataOfAny(0)");

  for (const long long beyond : {kBeyond, -kBeyond - kTick}) {
    EXPECT_FALSE(cache_->GetNextTimeWithData(KelTime(beyond), time, 0, &status_));
    ExpectStatus(KelStatus::eInvalidParameter);
  }
  EXPECT_EQ(TheRecorder().Take(), "");
  EXPECT_TRUE(cache_->GetNextTimeWithData(KelTime(kBeyond - 1), time, 0, &status_));
  EXPECT_TRUE(cache_->GetNextTimeWithData(KelTime(-kBeyond), time, 0, &status_));

  TheRecorder().refused = {"nc.getDataTime", "nc.getNextTimeWithData",
                           "nc.getNextTimeWithDataOfAny"};
  time.Set(5);
  Soil();
  EXPECT_FALSE(cache_->GetDataTime(0, 0, time, &status_));
  ExpectStatus(KelStatus::eFailure);
  EXPECT_FALSE(cache_->GetNextTimeWithData(time, time, -1, &status_));
  ExpectStatus(KelStatus::eFailure);
  EXPECT_EQ(time.Get(), 5);
  TheRecorder().dataCount = 0;
  unsigned int count = 5;
  EXPECT_EQ(cache_->GetDataCount(0, &status_), 0U);
  ExpectStatus(KelStatus::eFailure);
  EXPECT_TRUE(cache_->GetChannelSampleCount(0, count, &status_));
  ExpectClear();
  EXPECT_EQ(count, 0U);
}

TEST_F(Timing, PointCountsInsideTheRange) {
  Open(KelCache::eNCFormat);
  TheRecorder().startTicks = -1;
  unsigned int count = 0;
  const struct {
    long long time;
    const char* asked;  // the tick that the library is asked for; null when it is not
  } cases[] = {{6000 * kTick, "6000"}, {7697692, "0"},      {-7697692, "0"},
               {-7697693, "-1"},       {-7697694, nullptr}, {6000 * kTick + 1, nullptr}};
  for (const auto& c : cases) {
    TheRecorder().Take();
    const bool answered = cache_->GetChannelPointCount(0, KelTime(c.time), count, &status_);
    EXPECT_EQ(answered, c.asked != nullptr) << c.time;
    if (c.asked != nullptr) {
      ExpectClear();
      EXPECT_EQ(TheRecorder().calls.back(),
                std::string("nc.getArrayLengthAtTime(0, ") + c.asked + ")");
    } else {
      ExpectStatus(KelStatus::eFailure, "Specified time is out of range");
    }
  }
  TheRecorder().refused = {"nc.getArrayLengthAtTime"};
  EXPECT_FALSE(cache_->GetChannelPointCount(0, KelTime(0), count, &status_));
  ExpectStatus(KelStatus::eFailure, "Error retrieving channel point count");
}

TEST_F(Timing, IndicesOutOfRange) {
  unsigned int count = 0;
  KelTime time;
  auto type = KelCache::eNCSamplingRegular;
  Open(KelCache::eNCFormat);
  for (const int index : {-1, 1}) {
    EXPECT_FALSE(cache_->GetChannelPointCount(index, time, count, &status_));
    ExpectStatus(KelStatus::eIndexOutOfRange);
    EXPECT_FALSE(cache_->GetChannelSampleCount(index, count, &status_));
    ExpectStatus(KelStatus::eIndexOutOfRange);
    EXPECT_FALSE(cache_->GetChannelSamplingType(index, type, &status_));
    ExpectStatus(KelStatus::eIndexOutOfRange);
    EXPECT_FALSE(cache_->GetChannelSamplingRate(index, time, &status_));
    ExpectStatus(KelStatus::eIndexOutOfRange);
  }
  Open(KelCache::eAlembicFormat);
  EXPECT_TRUE(cache_->GetChannelSampleCount(1, count, &status_));
  for (const int index : {-1, 2}) {
    EXPECT_FALSE(cache_->GetChannelSampleCount(index, count, &status_));
    ExpectStatus(KelStatus::eIndexOutOfRange);
  }
}

TEST_F(Timing, SamplingTypeAndInterval) {
  Open(KelCache::eNCFormat);
  KelTime interval;
  auto type = KelCache::eNCSamplingIrregular;
  EXPECT_TRUE(cache_->GetChannelSamplingType(0, type, &status_));
  EXPECT_EQ(type, KelCache::eNCSamplingRegular);
  EXPECT_TRUE(cache_->GetChannelSamplingRate(0, interval, &status_));
  EXPECT_EQ(interval.Get(), 1924423250);
  TheRecorder().refused = {"nc.channelSamplingRate"};
  EXPECT_FALSE(cache_->GetChannelSamplingRate(0, interval, &status_));
  ExpectStatus(KelStatus::eFailure, "Error retrieving channel sampling rate");
  TheRecorder().regular = false;
  TheRecorder().Take();
  EXPECT_FALSE(cache_->GetChannelSamplingRate(0, interval, &status_));
  ExpectStatus(KelStatus::eFailure, "Sampling type for this channel is irregular");
  EXPECT_EQ(TheRecorder().Take(), "nc.isChannelSamplingRegular(0)");
  EXPECT_TRUE(cache_->GetChannelSamplingType(0, type, nullptr));
  EXPECT_EQ(type, KelCache::eNCSamplingIrregular);
}

}  // namespace
}  // namespace kelsdk::test
