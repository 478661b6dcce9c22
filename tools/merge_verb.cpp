#include <cstdio>
#include <memory>

#include "tools/copied_result.h"
#include "tools/edit_options.h"
#include "tools/merge.h"
#include "tools/options.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct Typed : MergeOptions {
  std::vector<std::string> files;  // inputs, then the target
  bool json = false;
};

EExit MergeTyped(const Typed& options) {
  std::vector<std::string> inputs = options.files;
  const std::string out = inputs.back();
  inputs.pop_back();
  const std::string first = inputs.empty() ? out : inputs.front();
  return TellCopy("merge", first, out, options.json,
                  [&](Watch& watch) { return Merge(inputs, out, options, watch); });
}

}  // namespace

void AddMerge(CLI::App& app, Work* work) {
  const auto options = std::make_shared<Typed>();
  CLI::App* const verb = app.add_subcommand(
      "merge",
      "Writes the channels of several caches into one NC cache. Side by side, or with --sequence "
      "one cache after the other in time.");
  verb->footer(
      "Examples:\n  kelcache merge body.xml cloth.pc2 all.xml\n"
      "  kelcache merge part1.xml part2.xml part3.xml shot.xml --sequence");
  verb->add_option("FILES", options->files, "The caches to read, and last the one to write")
      ->required();
  verb->add_flag("--sequence", options->sequence,
                 "Continue each channel of the first cache with those of the same name");
  verb->add_option_function<std::string>(
          "--prefer", [=](const std::string& word) { options->prefer = kPrefer.at(word); },
          "With --sequence: where caches overlap, take the samples of the one named first or last")
      ->check(OneOf(WordsOf(kPrefer)));
  verb->add_flag("--allow-different-ranges", options->allowDifferentRanges,
                 "Merge caches that begin or end at different frames");
  verb->add_option("--rate", options->rate,
                   "Frames per second of the caches that store none (PC2: else 24)")
      ->type_name("FPS")
      ->check(FrameRate());
  AddFormOptions(verb, options.get());
  verb->add_flag("--force", options->force, "Replace a cache that is there");
  AddJsonOption(verb, &options->json);
  verb->callback([=] { *work = [=] { return MergeTyped(*options); }; });
}

}  // namespace kelcache
