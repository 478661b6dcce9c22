#include "tools/verify.h"

#include <memory>

#include "tools/jobs.h"
#include "tools/terminal_watch.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

JobResult VerifyFile(const Input& input, const ManyOptions& options) {
  TerminalWatch watch(false);
  const Verified verified = Verify(input.path, options.asName, watch);
  JobResult result;
  result.result = "sound";
  Json findings = Json::array();
  for (const std::string& problem : verified.problems) {
    result.status = verified.unreadable ? eFailed : eFound;
    result.lines.push_back(input.path + ": " + problem);
    findings.push_back(
        {{"kind", verified.unreadable ? "unreadable" : "damage"}, {"text", problem}});
  }
  const std::size_t count = verified.problems.size();
  if (count != 0) {
    result.result = (verified.unreadable ? "unreadable, " : "damaged, ") + std::to_string(count) +
                    (count == 1 ? " problem" : " problems");
  }
  result.notes = watch.notes();
  result.report = {{"findings", std::move(findings)}, {"counts", {{"problems", count}}}};
  return result;
}

EExit VerifyTyped(const ManyOptions& options) {
  return RunJobs(options.Inputs(), options.jobs,
                 [&](const Input& input) { return VerifyFile(input, options); },
                 {"verify", "sound", options.json});
}

}  // namespace

void AddVerify(CLI::App& app, Work* work) {
  const auto options = std::make_shared<ManyOptions>();
  CLI::App* verb = app.add_subcommand(
      "verify",
      "Checks every size, index and checksum of caches. Each is read whole; a problem is a line of "
      "output, a sound cache by itself none, and of several each has a line. Exit status 1 for "
      "damage, 3 for a file that the system does not deliver.");
  verb->footer(
      "Examples:\n  kelcache verify *.xml *.pc2 *.abc --jobs 8\n"
      "  kelcache verify /show/caches --recursive --json");
  verb->add_option("FILE", options->files, "Caches and folders of caches")->required();
  AddManyOptions(verb, options.get());
  AddAsOption(verb, &options->asName);
  verb->callback([=] { *work = [=] { return VerifyTyped(*options); }; });
}

}  // namespace kelcache
