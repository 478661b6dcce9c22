#include "backends/nc/timeline.h"

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

}  // namespace
}  // namespace kelsdk::nc
