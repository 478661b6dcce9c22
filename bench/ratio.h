#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

/// Measures one piece of work against a baseline in the same run.
namespace kelbench {

inline double Seconds(const auto& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

inline double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + std::ptrdiff_t(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

/// Runs both in turn, so that a machine whose speed drifts drifts for both. The benchmark's own
/// time is that of `ours`. Counters: `ratio`, the median over pairs of baseline time / our time (1
/// is as fast as the baseline, more is faster), and the best speeds of both in GB/s.
inline void Compare(benchmark::State& state, double bytes, const auto& ours, const auto& baseline) {
  std::vector<double> ratios;
  double best = 1e300;
  double bestBaseline = 1e300;
  bool oursFirst = false;
  for ([[maybe_unused]] auto _ : state) {
    double mine = 0;
    double theirs = 0;
    oursFirst = !oursFirst;
    if (oursFirst) mine = Seconds(ours);
    theirs = Seconds(baseline);
    if (!oursFirst) mine = Seconds(ours);
    state.SetIterationTime(mine);
    ratios.push_back(theirs / mine);
    best = std::min(best, mine);
    bestBaseline = std::min(bestBaseline, theirs);
  }
  state.counters["ratio"] = Median(ratios);
  state.counters["GB/s"] = bytes / best / 1e9;
  state.counters["baseline_GB/s"] = bytes / bestBaseline / 1e9;
}

}  // namespace kelbench
