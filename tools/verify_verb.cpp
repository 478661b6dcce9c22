#include "tools/verify.h"

#include <memory>

#include "tools/jobs.h"
#include "tools/terminal_watch.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct VerifyOptions {
  std::vector<std::string> files;
  std::string asName;
  unsigned int jobs = 1;
};

JobResult VerifyFile(const std::string& file, const std::string& asName) {
  TerminalWatch watch(false);
  const Verified verified = Verify(file, asName, watch);
  JobResult result;
  for (const std::string& problem : verified.problems) {
    result.lines.push_back(file + ": " + problem);
    result.status = verified.unreadable ? eFailed : eFound;
  }
  return result;
}

EExit VerifyTyped(const VerifyOptions& options) {
  return RunJobs(options.files, options.jobs,
                 [&](const std::string& file) { return VerifyFile(file, options.asName); },
                 {"sound", "verify"});
}

}  // namespace

void AddVerify(CLI::App& app, Work* work) {
  const auto options = std::make_shared<VerifyOptions>();
  CLI::App* verb = app.add_subcommand(
      "verify",
      "Checks every size, index and checksum of caches. Each is read whole; a problem is a line of "
      "output, a sound cache none. Exit status 1 for damage, 3 for a file that the system does not "
      "deliver.");
  verb->footer("Example:\n  kelcache verify *.xml *.pc2 *.abc --jobs 8");
  verb->add_option("FILE", options->files, "The caches")->required();
  verb->add_option("--jobs", options->jobs, "Caches read at the same time")
      ->transform(WholeNumberFrom(1))
      ->capture_default_str();
  AddAsOption(verb, &options->asName);
  verb->callback([=] { *work = [=] { return VerifyTyped(*options); }; });
}

}  // namespace kelcache
