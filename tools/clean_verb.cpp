#include <cstdio>
#include <memory>

#include "tools/clean.h"
#include "tools/interrupt.h"
#include "tools/jobs.h"
#include "tools/numbers.h"
#include "tools/terminal.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct Typed : CleanOptions {
  std::vector<std::string> folders;
  bool json = false;
};

const char* OutcomeText(Remnant::EOutcome outcome) {
  switch (outcome) {
    case Remnant::eRemoved: return "removed";
    case Remnant::eWouldBeRemoved: return "would be removed";
    case Remnant::eKept: return "kept";
    case Remnant::eFailedToGo: return "failed";
  }
  return "";
}

struct Tally {
  std::size_t count = 0;
  std::uint64_t bytes = 0;

  void Add(const Remnant& remnant) {
    ++count;
    bytes += remnant.bytes;
  }
  std::string Text(const char* what) const {
    return std::to_string(count) + ' ' + what + " (" + SizeText(bytes) + ')';
  }
};

struct Totals {
  Tally removed;
  Tally kept;
  Tally failed;

  void Add(const Remnant& remnant) {
    const bool isKept = remnant.outcome == Remnant::eKept;
    const bool isFailed = remnant.outcome == Remnant::eFailedToGo;
    (isKept ? kept : isFailed ? failed : removed).Add(remnant);
  }
  EExit Status() const { return failed.count == 0 ? eDone : eFailed; }
  std::string Text(bool dryRun) const {
    std::string text =
        removed.Text(dryRun ? "would be removed" : "removed") + ", " + kept.Text("kept");
    return failed.count == 0 ? text : text + ", " + std::to_string(failed.count) + " failed";
  }
};

std::string LineOf(const Remnant& remnant) {
  std::string line = remnant.kind + ' ' + remnant.path;
  if (remnant.kind != "folder")
    line += ", " + SizeText(remnant.bytes) + ", " + AgeText(remnant.age);
  return line + ": " + OutcomeText(remnant.outcome) + ", " + remnant.why;
}

JobResult CleanForReport(const std::string& folder, const Typed& options) {
  Totals totals;
  JobResult result;
  Json leftovers = Json::array();
  Clean(folder, options, [&](const Remnant& remnant) {
    totals.Add(remnant);
    leftovers.push_back({{"kind", remnant.kind},
                         {"path", remnant.path},
                         {"bytes", remnant.bytes},
                         {"age", remnant.age},
                         {"result", OutcomeText(remnant.outcome)},
                         {"why", remnant.why}});
    if (remnant.outcome == Remnant::eFailedToGo) result.report["error"] = LineOf(remnant);
    ThrowIfInterrupted();
  });
  result.status = totals.Status();
  result.report["leftovers"] = leftovers;
  result.report["counts"] = {{"removed", options.dryRun ? 0 : totals.removed.count},
                             {"wouldBeRemoved", options.dryRun ? totals.removed.count : 0},
                             {"kept", totals.kept.count},
                             {"failed", totals.failed.count},
                             {"removedBytes", totals.removed.bytes},
                             {"keptBytes", totals.kept.bytes}};
  return result;
}

EExit CleanTyped(const Typed& options) {
  CatchInterrupts();
  if (options.json) {
    std::vector<Input> inputs;
    for (const std::string& folder : options.folders) inputs.push_back({folder, folder, false, ""});
    return RunJobs(inputs, 1,
                   [&](const Input& input) { return CleanForReport(input.path, options); },
                   {"clean", "cleaned", true});
  }
  Totals totals;
  for (const std::string& folder : options.folders) {
    Clean(folder, options, [&](const Remnant& remnant) {
      totals.Add(remnant);
      const bool isFailed = remnant.outcome == Remnant::eFailedToGo;
      isFailed ? PrintError(LineOf(remnant)) : PrintLine(stdout, LineOf(remnant));
      ThrowIfInterrupted();
    });
  }
  PrintLine(stdout, totals.Text(options.dryRun));
  return totals.Status();
}

}  // namespace

void AddClean(CLI::App& app, Work* work) {
  const auto options = std::make_shared<Typed>();
  CLI::App* verb = app.add_subcommand(
      "clean",
      "Removes what dead writers and recoveries left in folders. Partial files and folders that "
      "hold "
      "nothing whole go, and older caches that a recovery kept, where what took their place is "
      "whole. What a living writer holds stays.");
  verb->footer(
      "Examples:\n  kelcache clean /show/caches --recursive --dry-run\n"
      "  kelcache clean /show/caches --recursive --older-than 2w");
  verb->add_option("FOLDER", options->folders, "Folders of caches")->required();
  verb->add_flag("--recursive", options->recursive, "Look in the folders of folders, too");
  verb->add_option("--older-than", options->olderThan,
                   "Leave what was written to, or kept by a recovery, since then")
      ->type_name("30min|12h|2d|1w")
      ->transform(Duration());
  verb->add_flag("--dry-run", options->dryRun, "Only say what would be removed");
  verb->add_flag("--force", options->force,
                 "Remove what recover could save, too, and older caches that may be the only copy");
  AddJsonOption(verb, &options->json);
  verb->callback([=] { *work = [=] { return CleanTyped(*options); }; });
}

}  // namespace kelcache
