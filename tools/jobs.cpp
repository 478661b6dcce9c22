#include "tools/jobs.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <thread>

namespace kelcache {
namespace {

struct Outcome {
  JobResult result;
  std::string error;
  bool finished = false;
};

Outcome Run(const std::string& input, const std::function<JobResult(const std::string&)>& work) {
  Outcome outcome;
  try {
    outcome.result = work(input);
  } catch (const ToolError& error) {
    outcome.result.status = error.status();
    outcome.error = error.what();
  } catch (const std::exception& error) {
    outcome.result.status = eFailed;
    outcome.error = input + ": " + error.what();
  }
  outcome.finished = true;
  return outcome;
}

void Print(const Outcome& outcome) {
  for (const std::string& line : outcome.result.lines) std::printf("%s\n", line.c_str());
  if (!outcome.error.empty()) std::fprintf(stderr, "kelcache: %s\n", outcome.error.c_str());
}

}  // namespace

EExit RunJobs(const std::vector<std::string>& inputs, unsigned int jobs,
              const std::function<JobResult(const std::string& input)>& work, const char* done) {
  std::vector<Outcome> outcomes(inputs.size());
  std::mutex mutex;
  size_t next = 0;
  size_t printed = 0;
  const auto worker = [&] {
    std::unique_lock lock(mutex);
    while (next < inputs.size()) {
      const size_t mine = next++;
      lock.unlock();
      Outcome outcome = Run(inputs[mine], work);
      lock.lock();
      outcomes[mine] = std::move(outcome);
      for (; printed < outcomes.size() && outcomes[printed].finished; ++printed) {
        Print(outcomes[printed]);
      }
    }
  };
  std::vector<std::thread> threads;
  const size_t others = std::min<size_t>(jobs, inputs.size());
  for (size_t i = 1; i < others; ++i) threads.emplace_back(worker);
  worker();
  for (std::thread& thread : threads) thread.join();

  if (inputs.size() == 1) return outcomes[0].result.status;
  const auto failed = static_cast<size_t>(
      std::count_if(outcomes.begin(), outcomes.end(),
                    [](const Outcome& outcome) { return outcome.result.status != eDone; }));
  std::fprintf(stderr, "kelcache: %zu files, %zu %s, %zu failed\n", inputs.size(),
               inputs.size() - failed, done, failed);
  return failed == 0 ? eDone : eFound;
}

}  // namespace kelcache
