#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>

#include "tools/convert.h"
#include "tools/edit_options.h"
#include "tools/jobs.h"
#include "tools/options.h"
#include "tools/terminal_watch.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

// The command line.
struct Typed : ConvertOptions {
  std::vector<std::string> files;  // IN OUT, or with `extension` any number of IN
  std::string toWord;              // --to: a frame or a format
  std::string extension;           // the format that --to names
  std::string resampleWord;
  std::string padWord;
  std::string maxErrorText;
  unsigned int jobs = 1;
};

// --to is a frame or a format.
void TakeTo(Typed* options) {
  const std::string& word = options->toWord;
  if (word.empty()) return;
  if (word == "pc2" || word == "xml" || word == "nc") {
    options->extension = word == "pc2" ? ".pc2" : ".xml";
    return;
  }
  const std::optional<double> frame = ParseNumber(word);
  if (!frame) {
    throw CLI::ValidationError("--to", "\"" + word + "\" is neither a frame nor pc2, nc or xml");
  }
  options->range.to = frame;
}

std::string TargetOf(const std::string& in, const std::string& extension) {
  std::filesystem::path out(in);
  out.replace_extension(extension);
  return out.string();
}

ToolError SharedTarget(const std::string& out, const std::string& one, const std::string& other) {
  return {eUsage, out + ": is the target of both " + one + " and " + other};
}

// Before anything starts: of two inputs with one target the first would be lost.
void ExpectTargetsDiffer(const Typed& options) {
  std::map<std::string, std::string> sources;  // by target
  for (const std::string& in : options.files) {
    const std::string out = TargetOf(in, options.extension);
    const std::string place = std::filesystem::weakly_canonical(out).string();
    const auto [other, isNew] = sources.emplace(place, in);
    if (!isNew) throw SharedTarget(out, other->second, in);
  }
}

EExit ConvertTyped(const Typed& options) {
  CatchInterrupts();
  if (options.extension.empty()) {
    if (options.files.size() != 2) throw ToolError(eUsage, "convert takes IN and OUT, or --to EXT");
    TerminalWatch watch(true);
    const Copied converted = Convert(options.files[0], options.files[1], options, watch);
    PrintLine(stdout, CopiedText(options.files[1], converted.samples));
    return converted.missing ? eFound : eDone;
  }
  ExpectTargetsDiffer(options);
  return RunJobs(
      options.files, options.jobs,
      [&](const std::string& in) {
        const std::string out = TargetOf(in, options.extension);
        TerminalWatch watch(false);
        const Copied converted = Convert(in, out, options, watch);
        return JobResult{
            converted.missing ? eFound : eDone, {CopiedText(out, converted.samples)}, {}, {}, {}};
      },
      {"converted", "convert"});
}

}  // namespace

void AddConvert(CLI::App& app, Work* work) {
  const auto options = std::make_shared<Typed>();
  CLI::App* verb = app.add_subcommand(
      "convert",
      "Converts between PC2 and NC, and from Alembic to either. The target appears whole or not at "
      "all, also after Ctrl-C.");
  verb->footer(
      "Examples:\n  kelcache convert shot.pc2 shot.xml --rate 24 --compact\n"
      "  kelcache convert shot.pc2 small.xml --compact --max-error 0.01%\n"
      "  kelcache convert body.abc body.pc2 --channel /body/.geom/P\n"
      "  kelcache convert *.pc2 --to xml --jobs 4");
  verb->add_option("FILES", options->files, "IN OUT, or with --to any number of inputs")
      ->required();
  verb->add_option("--to", options->toWord,
                   "A number: the last scene frame. pc2, nc or xml: convert every input to that "
                   "format, beside it")
      ->type_name("FRAME|pc2|nc|xml");
  verb->add_option("--jobs", options->jobs, "With --to: conversions at the same time")
      ->transform(WholeNumberFrom(1))
      ->capture_default_str();
  verb->add_option("--rate", options->rate,
                   "Frames per second, such as 25 or 24000/1001, that frames are counted at. PC2 "
                   "stores none (else 24); NC and Alembic samples keep their times")
      ->type_name("FPS")
      ->check(FrameRate());
  verb->add_option("--resample", options->resampleWord,
                   "One value for each frame in place of the samples. hold takes the last sample "
                   "before it, linear the points between two, cubic those on a curve through four")
      ->check(OneOf(WordsOf(kResample)));
  verb->add_option("--pad", options->padWord,
                   "PC2: what samples of fewer points than others get for the rest, last being "
                   "their own last point")
      ->check(OneOf(WordsOf(kPad)));
  verb->add_flag("--snap-frames", options->snapFrames,
                 "NC: move frames to whole ticks: 23.976 frames per second become 24");
  AddChannelOptions(verb, &options->channels, "(default: all for NC, the first for PC2)");
  verb->add_option("--from", options->range.from, "First scene frame")
      ->type_name("FRAME")
      ->check(AnyNumber());
  AddEveryOption(verb, &options->every)->excludes("--resample");
  AddTransformOptions(verb, &options->transform);
  verb->add_flag("--per-frame", options->perFrame, "NC: one data file per frame");
  verb->add_flag("--compact", options->compact,
                 "NC: compression (ncc), lossless without --max-error");
  verb->add_option("--compact-encoding", options->compactEncoding,
                   "NC: 2, or 1, which takes more room, for readers that know no other")
      ->transform(OneOf({"1", "2"}))
      ->type_name("1|2")
      ->capture_default_str();
  verb->add_option("--max-error", options->maxErrorText,
                   "With --compact: let values, but no integers, move by this much at most, in the "
                   "cache's unit, or in percent of the longest side of a channel's bounding box "
                   "over all frames")
      ->type_name("NUMBER|PERCENT%")
      ->check(NumberOrPercentage());
  verb->add_flag("--force", options->force, "Replace a cache that is there");
  verb->callback([=] {
    if (!options->maxErrorText.empty()) options->maxError = ParseMaxError(options->maxErrorText);
    TakeTo(options.get());
    if (!options->resampleWord.empty()) options->resample = kResample.at(options->resampleWord);
    if (!options->padWord.empty()) options->pad = kPad.at(options->padWord);
    *work = [=] { return ConvertTyped(*options); };
  });
}

}  // namespace kelcache
