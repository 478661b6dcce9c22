#include "tools/jobs.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <system_error>
#include <thread>

#include "tools/failure.h"
#include "tools/interrupt.h"
#include "tools/table.h"
#include "tools/terminal.h"

namespace kelcache {
namespace {

struct Outcome {
  JobResult result;
  std::string error;
  bool finished = false;
};

class Jobs {
 public:
  using Function = std::function<JobResult(const std::string&)>;

  Jobs(const std::vector<std::string>& inputs, const Function& work, const JobsOutput& output)
      : inputs_(inputs), work_(work), output_(output), outcomes_(inputs.size()) {}

  void Run(unsigned int jobs) {
    std::vector<std::thread> threads;
    const size_t wanted = std::min<size_t>(jobs, inputs_.size());
    try {
      while (threads.size() + 1 < wanted) threads.emplace_back([this] { Work(); });
    } catch (const std::system_error&) {
      // The system gives no more threads: those that there are do it all.
    }
    Work();
    for (std::thread& thread : threads) thread.join();
  }

  EExit Summarise() const {
    EExit worst = next_ < inputs_.size() ? InterruptStatus() : eDone;
    size_t succeeded = 0;
    size_t failed = 0;
    for (const Outcome& outcome : outcomes_) {
      worst = std::max(worst, outcome.result.status);
      if (outcome.finished && outcome.result.status == eDone) ++succeeded;
      if (outcome.result.status != eDone && !WasEnded(outcome)) ++failed;
    }
    if (worst > eFailed) PrintError("interrupted");
    if (inputs_.size() > 1) {
      if (!output_.json && !output_.columns.empty()) PrintTable();
      std::string line = std::to_string(inputs_.size()) + " files, " + std::to_string(succeeded) +
                         ' ' + output_.done + ", " + std::to_string(failed) + " failed";
      const size_t open = inputs_.size() - succeeded - failed;
      if (open != 0) line += ", " + std::to_string(open) + " not done";
      PrintError(line);
    }
    return worst;
  }

 private:
  static bool WasEnded(const Outcome& outcome) { return outcome.result.status > eFailed; }

  void Work() {
    std::unique_lock lock(mutex_);
    while (next_ < inputs_.size() && !WasInterrupted()) {
      const size_t mine = next_++;
      lock.unlock();
      Outcome outcome = RunOne(inputs_[mine]);
      lock.lock();
      outcomes_[mine] = std::move(outcome);
      for (; printed_ < outcomes_.size() && outcomes_[printed_].finished; ++printed_) {
        Print(inputs_[printed_], outcomes_[printed_]);
      }
    }
  }

  Outcome RunOne(const std::string& input) const {
    Outcome outcome;
    try {
      outcome.result = work_(input);
    } catch (const ToolError&) {
      const Failure failure = CurrentFailure();
      outcome.result.status = failure.status;
      outcome.error = failure.line;
    } catch (const std::exception&) {
      const Failure failure = CurrentFailure();
      outcome.result.status = failure.status;
      outcome.error = input + ": " + failure.line;
    }
    outcome.finished = true;
    return outcome;
  }

  // The end by a signal is told once, for all.
  void Print(const std::string& input, const Outcome& outcome) const {
    if (output_.json) PrintReport(input, outcome);
    for (const std::string& line : outcome.result.lines) PrintLine(stdout, line);
    std::fflush(stdout);
    if (!outcome.error.empty() && !WasEnded(outcome)) PrintError(outcome.error);
  }

  void PrintReport(const std::string& input, const Outcome& outcome) const {
    Json report = {{"verb", output_.verb},
                   {"file", input},
                   {"status", static_cast<int>(outcome.result.status)},
                   {"error", outcome.error.empty() ? Json(nullptr) : Json(outcome.error)},
                   {"notes", outcome.result.notes}};
    report.update(outcome.result.report);
    const int indent = inputs_.size() == 1 ? 2 : -1;
    std::puts(report.dump(indent, ' ', false, Json::error_handler_t::replace).c_str());
  }

  void PrintTable() const {
    std::vector<std::vector<std::string>> rows = {output_.columns};
    for (std::size_t i = 0; i < outcomes_.size(); ++i) {
      if (!outcomes_[i].finished) continue;
      std::vector<std::string> row = outcomes_[i].result.row;
      if (row.empty()) row = {inputs_[i]};
      row.resize(output_.columns.size(), "-");
      rows.push_back(std::move(row));
    }
    for (const std::string& line : TableLines(rows)) PrintLine(stdout, line);
  }

  const std::vector<std::string>& inputs_;
  const Function& work_;
  const JobsOutput& output_;
  std::mutex mutex_;
  std::vector<Outcome> outcomes_;
  size_t next_ = 0;
  size_t printed_ = 0;
};

}  // namespace

EExit RunJobs(const std::vector<std::string>& inputs, unsigned int jobs,
              const std::function<JobResult(const std::string& input)>& work,
              const JobsOutput& output) {
  Jobs all(inputs, work, output);
  all.Run(jobs);
  return all.Summarise();
}

}  // namespace kelcache
