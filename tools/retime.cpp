#include <memory>

#include "tools/copy.h"
#include "tools/target.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct RetimeOptions {
  std::string in;
  std::string out;
  kelsdk::KelFrameRate rate = {0, 0};
  double scale = 0;
  std::optional<double> offset;
  bool perFrame = false;
  bool compact = false;
  bool force = false;
};

EExit Retime(const RetimeOptions& options) {
  const Format from = FormatOf(options.in, "");
  CopyOptions copy;
  copy.target = options.out;
  copy.targetFormat = FormatOf(options.out, "");
  ExpectWritten(copy.targetFormat, options.out);
  const FormatRow& row = RowOf(copy.targetFormat);
  if (options.rate.IsValid() && !row.storesRate) {
    throw ToolError(eUsage, options.out + ": a PC2 cache stores no frame rate");
  }
  if ((options.perFrame || options.compact) && !row.hasLayouts) {
    throw ToolError(eUsage, options.out + ": --per-frame and --compact are for NC caches (.xml)");
  }
  copy.targetRate = options.rate;
  if (options.scale > 0) copy.map.scale = options.scale;
  if (options.offset) copy.map.offset = *options.offset;
  copy.perFrame = options.perFrame;
  copy.compact = options.compact;
  const Target target(options.out, options.force);
  Source source(options.in, from);
  const bool missing = SayWhatIsMissing(source, {});
  target.ExpectOtherThan(options.in);
  PrintCopied(options.out, Copy(source, copy));
  return missing ? eFound : eDone;
}

}  // namespace

void AddRetime(CLI::App& app, Work* work) {
  const auto options = std::make_shared<RetimeOptions>();
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
  verb->callback([=] { *work = [=] { return Retime(*options); }; });
}

}  // namespace kelcache
