#include "backends/nc/even_spacing.h"

#include <gtest/gtest.h>

#include <climits>

namespace kelsdk::nc {
namespace {

constexpr int kNone = -1;

const struct {
  const char* why;
  std::initializer_list<int> ticks;
  std::uint32_t interval;
  int tick;
  int sample;
} kLookups[] = {
    {"its own tick", {0, 250, 500}, 250, 250, 1},
    {"a hair below a frame came in a tick early", {0, 250, 500}, 250, 249, 1},
    {"two ticks below is still the frame before", {0, 250, 500}, 250, 248, 0},
    {"before the first", {0, 250}, 250, -2, kNone},
    {"held between samples", {0, 250, 2000}, 250, 1500, 1},
    {"the last holds for one interval", {0, 250}, 250, 499, 1},
    {"its end excluded", {0, 250}, 250, 500, kNone},
    {"no interval: the tick before, cut toward zero", {7}, 0, 6, 0},
    {"no interval: nothing is held", {7}, 0, 8, kNone},
    {"the ends of the range", {INT_MIN, INT_MAX}, 4294967295u, INT_MAX - 1, 1},
    {"among runs", {-30, -20, -10, 5, 6, 100, 200, 300, 301, 900}, 100, 250, 6},
    {"a channel without samples", {}, 250, 0, kNone},
};

TEST(Timeline, LookupsInEntriesAndInRuns) {
  for (const auto& row : kLookups) {
    std::vector<SampleEntry> entries;
    TimeRuns runs;
    for (const int tick : row.ticks) {
      SampleEntry entry;
      entry.tick = tick;
      InsertSample(&entries, entry);
      runs.Append(tick);
    }
    for (const Times& times : {Times(entries), Times(runs)}) {
      const auto found = FindSample(times, row.tick, row.interval);
      EXPECT_EQ(found ? static_cast<int>(*found) : kNone, row.sample) << row.why;
    }
    ASSERT_EQ(runs.Count(), entries.size());
    for (std::uint32_t i = 0; i < runs.Count(); ++i) EXPECT_EQ(runs.At(i), entries[i].tick);
    for (int tick = -40; tick < 910; ++tick) {
      EXPECT_EQ(Times(runs).CountUpTo(tick), Times(entries).CountUpTo(tick)) << tick;
      EXPECT_EQ(NextTime(Times(runs), tick), NextTime(Times(entries), tick)) << tick;
    }
  }
}

// Where samples lie that were rounded to ticks, and whether they are even at all.
const struct {
  const char* why;
  std::initializer_list<int> ticks;
  double ticksPerFrame;
  double start;
  double interval;  // 0: not even
} kSpacings[] = {
    {"whole ticks are exact, whatever simpler number is near", {0, 251, 502}, 250, 0, 251 / 250.0},
    {"quarter frames of 62.5 ticks", {0, 63, 125, 188, 250}, 250, 0, 0.25},
    {"frames of 24000/1001 a second", {2503, 2753, 3003, 3253, 3504}, 250.25, 10, 1},
    {"one of them, and its declared interval", {2503}, 250.25, 10, 1},
    {"jitter of a tick each way", {0, 251, 499, 751, 1000}, 250, 0, 1},
    {"two ticks beside its place", {0, 250, 502, 750, 1000}, 250, 0, 0},
    {"nothing between", {0, 250, 1000}, 250, 0, 0},
    {"the ends of the range", {INT_MIN, 0}, 250, INT_MIN / 250.0, -(INT_MIN / 250.0)},
    {"no sample", {}, 250, 0, 0},
};

TEST(EvenSpacing, OfSamplesOnWholeTicks) {
  for (const auto& row : kSpacings) {
    TimeRuns runs;
    for (const int tick : row.ticks) runs.Append(tick);
    const auto found = FindEvenSpacing(Times(runs), row.ticksPerFrame, 250);
    ASSERT_EQ(found.has_value(), row.interval != 0) << row.why;
    if (!found) continue;
    EXPECT_DOUBLE_EQ(found->start, row.start) << row.why;
    EXPECT_DOUBLE_EQ(found->interval, row.interval) << row.why;
  }
}

}  // namespace
}  // namespace kelsdk::nc
