#include "tools/recover.h"

#include <cstdio>
#include <memory>

#include "tools/jobs.h"
#include "tools/terminal.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct RecoverOptions {
  std::string file;
  bool force = false;
  bool json = false;
};

JobResult RecoverForReport(const RecoverOptions& options) {
  const Recovered recovered = Recover(options.file, options.force);
  if (!recovered.done) throw Failed(options.file, recovered.why);
  JobResult result;
  result.notes = recovered.lines;
  return result;
}

// What was saved and kept is the verb's output.
EExit RecoverAndTell(const RecoverOptions& options) {
  if (options.json) {
    return Report("recover", options.file, [&] { return RecoverForReport(options); });
  }
  const Recovered recovered = Recover(options.file, options.force);
  for (const std::string& line : recovered.lines) {
    if (recovered.done) {
      PrintLine(stdout, options.file + ": " + line);
    } else {
      PrintError(options.file + ": " + line);
    }
  }
  if (!recovered.done) throw Failed(options.file, recovered.why);
  return eDone;
}

}  // namespace

void AddRecover(CLI::App& app, Work* work) {
  const auto options = std::make_shared<RecoverOptions>();
  CLI::App* verb = app.add_subcommand(
      "recover",
      "Completes what a dead writer of a PC2 or NC cache left behind and says what it saved under "
      "which name. That is the cache's own, or FILE.recovered beside a whole cache that stands "
      "there.");
  verb->footer("Examples:\n  kelcache recover sim.xml\n  kelcache recover sim.xml --force");
  verb->add_option("FILE", options->file, "The cache that was being written")->required();
  verb->add_flag("--force", options->force,
                 "Put it in the place of a whole cache too, which is kept as FILE.before-recover");
  AddJsonOption(verb, &options->json);
  verb->callback([=] { *work = [=] { return RecoverAndTell(*options); }; });
}

}  // namespace kelcache
