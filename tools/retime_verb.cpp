#include "tools/retime.h"

#include <cstdio>
#include <memory>

#include "tools/copied_result.h"
#include "tools/terminal_watch.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct Typed : RetimeOptions {
  std::string in;
  std::string out;
  bool json = false;
};

EExit RetimeTyped(const Typed& options) {
  return TellCopy("retime", options.in, options.out, options.json,
                  [&](Watch& watch) { return Retime(options.in, options.out, options, watch); });
}

}  // namespace

void AddRetime(CLI::App& app, Work* work) {
  const auto options = std::make_shared<Typed>();
  CLI::App* verb =
      app.add_subcommand("retime", "Writes a cache with the same samples at other times.");
  verb->footer(
      "Examples:\n  kelcache retime shot.xml late.xml --offset 100\n"
      "  kelcache retime shot.pc2 slow.pc2 --scale 2");
  verb->add_option("IN", options->in, "The cache to read")->required();
  verb->add_option("OUT", options->out, "The cache to write, PC2 or NC")->required();
  auto* how = verb->add_option_group("timing", "How the samples move");
  how->add_option("--rate", options->rate,
                  "Every sample keeps its scene frame and lasts as long as at this many frames per "
                  "second")
      ->type_name("FPS")
      ->check(FrameRate());
  how->add_option("--scale", options->scale, "Scene frames are multiplied by this")
      ->check(NumberAboveZero());
  how->add_option("--offset", options->offset, "This many frames are added to the scene frames")
      ->type_name("FRAMES")
      ->check(AnyNumber());
  how->require_option(1);
  verb->add_flag("--per-frame", options->perFrame, "NC: one data file per frame");
  verb->add_flag("--compact", options->compact, "NC: lossless compression (ncc)");
  verb->add_flag("--force", options->force, "Replace a cache that is there");
  AddJsonOption(verb, &options->json);
  verb->callback([=] { *work = [=] { return RetimeTyped(*options); }; });
}

}  // namespace kelcache
