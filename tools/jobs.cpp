#include "tools/jobs.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <system_error>
#include <thread>

#include "tools/bare_report.h"
#include "tools/failure.h"
#include "tools/interrupt.h"
#include "tools/numbers.h"
#include "tools/terminal.h"

namespace kelcache {
namespace {

struct Outcome {
  JobResult result;
  std::string error;   // the line on standard error
  std::string reason;  // the same without the name
  bool finished = false;
};

bool WasEnded(EExit status) {
  return status > eFailed;
}

std::string WithoutName(const std::string& line, const std::string& name) {
  const std::string head = name + ": ";
  return line.starts_with(head) ? line.substr(head.size()) : line;
}

/// Rows of aligned cells: the name, some numbers, the result.
class Rows {
 public:
  Rows(const std::vector<Input>& inputs, const std::vector<Column>& columns) : columns_(columns) {
    for (const Input& input : inputs) widest_ = std::max(widest_, WidthOf(Printable(input.path)));
  }

  void PrintHead() {
    if (columns_.empty()) return;
    std::vector<std::string> titles;
    for (const Column& column : columns_) titles.emplace_back(column.title);
    Print("file", titles, "");
  }

  void Print(const std::string& name, std::vector<std::string> cells, const std::string& result) {
    cells.resize(columns_.size(), "-");
    std::string line = name + Padding(name, widest_);
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const auto least =
          std::max<std::size_t>(columns_[i].width, std::string(columns_[i].title).size());
      line += "  " + Padding(cells[i], static_cast<unsigned int>(least)) + cells[i];
    }
    if (!result.empty()) line += "  " + result;
    PrintLine(stdout, line);
  }

 private:
  static std::string Padding(const std::string& text, unsigned int width) {
    const unsigned int own = WidthOf(Printable(text));
    return std::string(own < width ? width - own : 0, ' ');
  }

  const std::vector<Column>& columns_;
  unsigned int widest_ = 4;
};

class Jobs {
 public:
  using Function = std::function<JobResult(const Input&)>;

  Jobs(const std::vector<Input>& inputs, const Function& work, const JobsOutput& output)
      : inputs_(inputs),
        work_(work),
        output_(output),
        several_(AreSeveral(inputs)),
        rows_(inputs, output.columns),
        outcomes_(inputs.size()) {}

  void Run(unsigned int jobs) {
    if (HasRows() && !output_.rowsAtEnd) rows_.PrintHead();
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

  EExit Summarise() {
    EExit worst = next_ < inputs_.size() ? InterruptStatus() : eDone;
    std::vector<std::pair<std::string, size_t>> tallies = {{output_.done, 0}};
    size_t succeeded = 0;
    size_t failed = 0;
    std::uint64_t bytes = 0;
    for (const Outcome& outcome : outcomes_) {
      const EExit status = outcome.result.status;
      worst = std::max(worst, status);
      if (outcome.finished && status == eDone) {
        ++succeeded;
        Count(outcome.result.tally, &tallies);
      }
      if (status != eDone && !WasEnded(status)) ++failed;
      bytes += outcome.result.bytes;
    }
    if (HasRows() && output_.rowsAtEnd) PrintRows();
    if (WasEnded(worst)) PrintError("interrupted");
    if (output_.json && !output_.shard.empty() && !WasEnded(worst)) PrintEndOfShard(worst);
    if (several_) {
      std::string line = std::to_string(inputs_.size()) + " files";
      for (const auto& [word, count] : tallies) line += ", " + std::to_string(count) + ' ' + word;
      line += ", " + std::to_string(failed) + " failed";
      const size_t open = inputs_.size() - succeeded - failed;
      if (open != 0) line += ", " + std::to_string(open) + " not done";
      if (bytes != 0) line += "; " + SizeText(bytes);
      PrintError(line);
    }
    return worst;
  }

 private:
  bool HasRows() const { return several_ && !output_.json; }

  static void Count(const std::string& word, std::vector<std::pair<std::string, size_t>>* tallies) {
    const auto known = word.empty()
                           ? tallies->begin()
                           : std::find_if(tallies->begin(), tallies->end(),
                                          [&](const auto& tally) { return tally.first == word; });
    if (known != tallies->end()) {
      ++known->second;
    } else {
      tallies->emplace_back(word, 1);
    }
  }

  void Work() {
    std::unique_lock lock(mutex_);
    while (next_ < inputs_.size() && !WasInterrupted()) {
      const size_t mine = next_++;
      lock.unlock();
      Outcome outcome = RunOne(inputs_[mine]);
      lock.lock();
      outcomes_[mine] = std::move(outcome);
      for (; printed_ < outcomes_.size() && outcomes_[printed_].finished; ++printed_) {
        Print(inputs_[printed_], &outcomes_[printed_]);
      }
    }
  }

  Outcome RunOne(const Input& input) const {
    Outcome outcome;
    try {
      if (!input.problem.empty()) throw Failed(input.path, input.problem);
      outcome.result = work_(input);
    } catch (const ToolError&) {
      const Failure failure = CurrentFailure();
      outcome.result.status = failure.status;
      outcome.error = failure.line;
      outcome.reason = WithoutName(failure.line, input.path);
    } catch (const std::exception&) {
      const Failure failure = CurrentFailure();
      outcome.result.status = failure.status;
      outcome.error = input.path + ": " + failure.line;
      outcome.reason = failure.line;
    }
    outcome.finished = true;
    return outcome;
  }

  // The end by a signal is told once, for all. What was told is not kept.
  void Print(const Input& input, Outcome* outcome) {
    JobResult& result = outcome->result;
    if (output_.json) {
      PrintReport(input, *outcome);
    } else {
      for (const std::string& line : result.lines) PrintLine(stdout, line);
      if (HasRows() && !output_.rowsAtEnd) PrintRow(input, *outcome);
    }
    std::fflush(stdout);
    if (!outcome->error.empty() && !WasEnded(result.status) && !HasRows()) {
      PrintError(outcome->error);
    }
    result.lines = {};
    result.notes = {};
    result.report = nullptr;
    if (!output_.rowsAtEnd) result.cells = {};
  }

  void PrintRow(const Input& input, const Outcome& outcome) {
    if (WasEnded(outcome.result.status)) return;
    rows_.Print(input.path, outcome.result.cells,
                outcome.error.empty() ? outcome.result.result : outcome.reason);
  }

  void PrintRows() {
    rows_.PrintHead();
    for (std::size_t i = 0; i < outcomes_.size(); ++i) {
      if (outcomes_[i].finished) PrintRow(inputs_[i], outcomes_[i]);
    }
  }

  void PrintReport(const Input& input, const Outcome& outcome) const {
    const JobResult& result = outcome.result;
    Json report = BareReport(output_.verb, input.path);
    report["status"] = static_cast<int>(result.status);
    if (!outcome.error.empty()) report["error"] = outcome.reason;
    report["notes"] = result.notes;
    report.update(result.report);
    const std::string text = TextOf(report, several_ || output_.isLastReport) + '\n';
    std::fwrite(text.data(), 1, text.size(), stdout);
  }

  void PrintEndOfShard(EExit worst) const {
    const Json report = {{"verb", output_.verb},
                         {"shard", output_.shard},
                         {"files", inputs_.size()},
                         {"status", static_cast<int>(worst)}};
    PrintLine(stdout, report.dump());
  }

  const std::vector<Input>& inputs_;
  const Function& work_;
  const JobsOutput& output_;
  const bool several_;
  Rows rows_;
  std::mutex mutex_;
  std::vector<Outcome> outcomes_;
  size_t next_ = 0;
  size_t printed_ = 0;
};

}  // namespace

EExit RunJobs(const std::vector<Input>& inputs, unsigned int jobs,
              const std::function<JobResult(const Input& input)>& work, const JobsOutput& output) {
  Jobs all(inputs, work, output);
  all.Run(jobs);
  return all.Summarise();
}

EExit Report(const char* verb, const std::string& file, const std::function<JobResult()>& work) {
  const auto once = [&](const Input&) { return work(); };
  return RunJobs({{file, file, false, ""}}, 1, once, {verb, "", true});
}

}  // namespace kelcache
