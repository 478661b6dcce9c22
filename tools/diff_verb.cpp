#include "tools/diff.h"

#include <cstdio>
#include <memory>

#include "tools/terminal_watch.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct Typed : DiffOptions {
  std::string a;
  std::string b;
};

EExit DiffTyped(const Typed& options) {
  TerminalWatch watch(true);
  const auto print = [](const std::string& line) { PrintLine(stdout, line); };
  const Differences found = Diff(options.a, options.b, options, print, watch);
  if (found.largest > 0) {
    print("largest difference " + ShortestText(found.largest) + " at " + found.where);
  }
  return found.count != 0 || found.missing ? eFound : eDone;
}

}  // namespace

void AddDiff(CLI::App& app, Work* work) {
  const auto options = std::make_shared<Typed>();
  CLI::App* verb = app.add_subcommand(
      "diff",
      "Compares two caches of any formats sample by sample. Counts, times and values as stored; "
      "prints a line per difference and the largest one. Exit status 0 equal, 1 different.");
  verb->footer("Example:\n  kelcache diff a.pc2 b.xml --tolerance 1e-6");
  verb->add_option("A", options->a, "One cache")->required();
  verb->add_option("B", options->b, "The other")->required();
  verb->add_option("--channel", options->channel,
                   "Channel number or name (default: all; the first where one is PC2)");
  verb->add_option("--tolerance", options->tolerance, "Values that differ by no more are equal")
      ->check(NumberFromZero())
      ->capture_default_str();
  verb->callback([=] { *work = [=] { return DiffTyped(*options); }; });
}

}  // namespace kelcache
