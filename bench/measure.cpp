#include "bench/measure.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace kelbench {
namespace {

constexpr std::size_t kLeastRounds = 5;
constexpr std::size_t kMostRounds = 200;
constexpr double kFirstsSeconds = 0.3;  // what the first contender's passes take together
constexpr double kMuchSlower = 8;

double TimeOnce(const Contender& contender) {
  contender.before();
  const auto begin = std::chrono::steady_clock::now();
  contender.pass();
  const auto end = std::chrono::steady_clock::now();
  contender.after();
  return std::chrono::duration<double>(end - begin).count() - contender.idle();
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

std::vector<Timing> Measure(const std::vector<Contender>& contenders) {
  const std::size_t count = contenders.size();
  std::vector<double> warmUp;  // of files and memory
  warmUp.reserve(count);
  for (const Contender& contender : contenders) warmUp.push_back(TimeOnce(contender));
  const auto isMuchSlower = [&](std::size_t at) { return warmUp[at] >= kMuchSlower * warmUp[0]; };
  for (std::size_t i = 0; i < count; ++i) {
    if (isMuchSlower(i)) warmUp[i] = std::min(warmUp[i], TimeOnce(contenders[i]));
  }
  std::vector<Timing> timings(count, Timing{1e300, 1});
  std::vector<std::vector<double>> ratios(count);
  double spent = 0;
  for (std::size_t round = 0; round < kMostRounds; ++round) {
    if (round >= kLeastRounds && spent > kFirstsSeconds) break;
    std::vector<double> seconds = warmUp;
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t at = (i + round) % count;
      if (!isMuchSlower(at)) seconds[at] = TimeOnce(contenders[at]);
    }
    spent += seconds[0];
    for (std::size_t i = 0; i < count; ++i) {
      timings[i].seconds = std::min(timings[i].seconds, seconds[i]);
      ratios[i].push_back(seconds[i] / seconds[0]);
    }
  }
  for (std::size_t i = 0; i < count; ++i) timings[i].ratio = Median(ratios[i]);
  return timings;
}

void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "benchmark: %s\n", what);
  std::abort();
}

}  // namespace kelbench
