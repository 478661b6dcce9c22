#include <cstdio>
#include <map>
#include <memory>

#include "tools/convert.h"
#include "tools/convert_batch.h"
#include "tools/copied_result.h"
#include "tools/edit_options.h"
#include "tools/options.h"
#include "tools/terminal_watch.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

// The command line.
struct Typed : ConvertOptions {
  ManyOptions many;    // IN OUT, or with an extension any number of IN
  BatchOptions batch;  // the extension of the format that --to names
  std::string toWord;  // --to: a frame or a format
  bool dryRun = false;
  std::string resampleWord;
  std::string padWord;
  std::string maxErrorText;
};

// --to is a frame or a format.
void TakeTo(Typed* options) {
  const std::string& word = options->toWord;
  if (word.empty()) return;
  if (word == "pc2" || word == "xml" || word == "nc") {
    options->batch.extension = word == "pc2" ? ".pc2" : ".xml";
    return;
  }
  const std::optional<double> frame = ParseNumber(word);
  if (!frame) {
    throw CLI::ValidationError("--to", "\"" + word + "\" is neither a frame nor pc2, nc or xml");
  }
  options->range.to = frame;
}

EExit ConvertOne(const Typed& options, const std::string& in, const std::string& out) {
  return TellCopy("convert", in, out, options.many.json,
                  [&](Watch& watch) { return Convert(in, out, options, watch); });
}

JobResult Told(const PlannedCopy& copy, const char* what) {
  JobResult result;
  result.tally = what;
  result.result = result.tally + ": " + copy.target;
  result.report = {{"target", copy.target}, {"result", what}};
  return result;
}

JobResult ConvertPlanned(const Typed& options, const PlannedCopy& copy) {
  const ETargetState state = LookAtTarget(copy, options.batch);
  switch (state) {
    case ETargetState::eUpToDate: return Told(copy, "up to date");
    case ETargetState::eIsSource: return Told(copy, "in that format already");
    case ETargetState::eInTheWay: throw Failed(copy.target, "exists already; --force replaces it");
    case ETargetState::eFree:
    case ETargetState::eReplaced: break;
  }
  const bool replaces = state == ETargetState::eReplaced;
  if (options.dryRun) return Told(copy, replaces ? "would be replaced" : "would be converted");
  ConvertOptions how = static_cast<const ConvertOptions&>(options);
  how.force = replaces || options.force;
  TerminalWatch watch(false);
  Copied converted;
  MakeCopy(copy, [&] { converted = Convert(copy.input.path, copy.target, how, watch); });
  JobResult result = CopiedResult(copy.target, converted, watch.notes());
  result.result = CopiedText(copy.target, converted.samples);
  result.report["result"] = "converted";
  return result;
}

EExit ConvertMany(const Typed& options) {
  ManyOptions all = options.many;
  all.shard = "";
  const Shard shard = ParseShard(options.many.shard).value_or(Shard{});
  std::map<std::string, PlannedCopy> copies;  // by input
  std::vector<Input> inputs;
  for (const PlannedCopy& copy : PlanCopies(all.Inputs(options.batch.folder), options.batch)) {
    if (!shard.Holds(copy.input.name)) continue;
    copies.emplace(copy.input.path, copy);
    inputs.push_back(copy.input);
  }
  return RunJobs(inputs, options.many.jobs,
                 [&](const Input& input) { return ConvertPlanned(options, copies.at(input.path)); },
                 {"convert", "converted", options.many.json, {}, false, options.many.shard});
}

EExit ConvertTyped(const Typed& options) {
  CatchInterrupts();
  const std::vector<std::string>& files = options.many.files;
  if (!options.batch.extension.empty()) return ConvertMany(options);
  if (files.size() != 2) throw ToolError(eUsage, "convert takes IN and OUT, or --to EXT");
  if (!options.batch.folder.empty() || options.batch.skipExisting || options.dryRun) {
    throw ToolError(eUsage, "--out-dir, --skip-existing and --dry-run go with --to EXT");
  }
  return ConvertOne(options, files[0], files[1]);
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
      "  kelcache convert *.pc2 --to xml --jobs 4\n"
      "  kelcache convert caches --recursive --to xml --out-dir small --compact \\\n"
      "    --skip-existing");
  verb->add_option("FILES", options->many.files,
                   "IN OUT, or with --to any number of caches and folders of caches")
      ->required();
  verb->add_option("--to", options->toWord,
                   "A number: the last scene frame. pc2, nc or xml: convert every input to that "
                   "format, beside it")
      ->type_name("FRAME|pc2|nc|xml");
  verb->add_option("--out-dir", options->batch.folder,
                   "With --to: put the copies into this folder, those of a folder into the same "
                   "folders there")
      ->type_name("DIR");
  verb->add_flag("--skip-existing", options->batch.skipExisting,
                 "With --to: leave copies that are newer than their source and whole, and replace "
                 "others");
  verb->add_flag("--dry-run", options->dryRun, "With --to: only say what would be done");
  AddManyOptions(verb, &options->many);
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
  AddFromOption(verb, &options->range);
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
    options->batch.force = options->force;
    *work = [=] { return ConvertTyped(*options); };
  });
}

}  // namespace kelcache
