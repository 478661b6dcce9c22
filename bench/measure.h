#pragma once

#include <functional>
#include <string>
#include <vector>

/// Measures ways of doing one piece of work against each other in the same run.
namespace kelbench {

/// One way. Only `pass` is timed.
struct Contender {
  std::string name;
  std::function<void()> pass;
  std::function<void()> before = [] {};
  std::function<void()> after = [] {};
  /// Seconds of the last pass that do not count.
  std::function<double()> idle = [] { return 0.0; };
};

struct Timing {
  double seconds = 0;  ///< of the fastest pass
  double ratio = 1;    ///< median over rounds of this pass / the first contender's pass beside it
};

/// Runs all in turn, again and again, so that a machine whose speed drifts drifts for all of them.
/// Who begins changes from round to round; a way much slower than the first runs
/// twice.
std::vector<Timing> Measure(const std::vector<Contender>& contenders);

/// Ends the program: a benchmark of something that does not work measures nothing.
void Require(bool condition, const char* what);

/// Keeps the optimiser from leaving out the making of what stands there.
inline void Keep(const void* bytes) {
  asm volatile("" : : "r"(bytes) : "memory");
}

}  // namespace kelbench
