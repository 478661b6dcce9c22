#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>

#include "tools/copy.h"
#include "tools/interrupt.h"
#include "tools/jobs.h"
#include "tools/output.h"
#include "tools/readable.h"
#include "tools/target.h"
#include "tools/terminal.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;
using kelsdk::zuCacheFileInterface;

const std::map<std::string, EResample> kResample = {{"hold", EResample::eHold},
                                                    {"linear", EResample::eLinear}};
const std::map<std::string, EPad> kPad = {
    {"last", EPad::eLast}, {"nan", EPad::eNan}, {"zero", EPad::eZero}};

template <typename Choice>
std::vector<std::string> WordsOf(const std::map<std::string, Choice>& choices) {
  std::vector<std::string> words;
  words.reserve(choices.size());
  for (const auto& [word, choice] : choices) words.push_back(word);
  return words;
}

struct ConvertOptions {
  std::vector<std::string> files;  // IN OUT, or with `extension` any number of IN
  std::string toWord;              // --to as typed: a frame or a format
  std::string extension;           // the format that --to names
  std::string channel;
  FrameRange range;
  kelsdk::KelFrameRate rate = {0, 0};
  std::string resampleWord;  // as typed
  EResample resample = EResample::eNone;
  std::string padWord;  // as typed
  EPad pad = EPad::eNone;
  bool snapFrames = false;
  bool perFrame = false;
  bool compact = false;
  unsigned int compactEncoding = zuCacheFileInterface::kCompactEncoding;
  std::string maxErrorText;  // as typed
  std::optional<MaxError> maxError;
  bool force = false;
  unsigned int jobs = 1;
};

// Follows one of the library's own conversions.
struct Watch {
  Watch(bool progress, const std::string& target) : show(progress), file(target) {}

  static bool Proceed(void* context, unsigned int done, unsigned int total) {
    auto* watch = static_cast<Watch*>(context);
    if (watch->bar == nullptr)
      watch->bar = std::make_unique<Progress>(total, watch->show, watch->file);
    watch->bar->Show(done);
    watch->samples = done;
    return !WasInterrupted();
  }
  static void Report(void* context, const char* line) { static_cast<Watch*>(context)->why = line; }

  bool show;
  std::string file;
  std::unique_ptr<Progress> bar;
  unsigned int samples = 0;
  std::string why;
};

zuCacheFileInterface::conversionWatch Watched(Watch* watch) {
  zuCacheFileInterface::conversionWatch watched;
  watched.proceed = Watch::Proceed;
  watched.report = Watch::Report;
  watched.context = watch;
  return watched;
}

bool IsWhole(double ticks) {
  return std::fabs(ticks - std::round(ticks)) < 1e-3;
}

// Sample times that are no whole ticks are rounded to them.
void SayWhenTimesMove(const Source& source, double ticksPerFrame) {
  const PC2Summary& pc2 = *source.summary().pc2;
  const bool exact = IsWhole(pc2.startFrame * ticksPerFrame) &&
                     (pc2.samples < 2 || IsWhole(pc2.sampleRate * ticksPerFrame));
  if (!exact) {
    PrintError(
        source.summary().file +
        ": sample times were rounded to ticks, 6000 to the second; at another --rate they may "
        "fall on ticks");
  }
}

// The part of a channel that a conversion takes.
zuCacheFileInterface::conversionOptions PartOf(Source& source, const ChannelSummary& channel,
                                               const FrameRange& frames) {
  Moments moments = source.MomentsOf(channel);
  const MomentRange range = moments.In(frames);
  if (range.Count() == 0) {
    throw Failed(source.summary().file, "no sample lies in the frames asked for");
  }
  zuCacheFileInterface::conversionOptions part;
  part.firstSample = static_cast<unsigned int>(range.first);
  part.sampleCount = static_cast<unsigned int>(range.Count());
  return part;
}

std::uint64_t PC2ToNC(Source& source, const std::string& out, const ConvertOptions& options,
                      bool progress) {
  const NCName target(out);
  const TickRate rate(source.summary().rate);
  const ChannelSummary& channel = source.summary().FindChannel(options.channel);
  auto part = PartOf(source, channel, options.range);
  if (!options.snapFrames) part.exactRate = rate.exactRate;
  part.compactEncoding = options.compactEncoding;
  if (options.maxError) {
    const auto track = MakeTrack(source, channel, options.range, EResample::eNone);
    part.maximumError = options.maxError->Of(*track);
  }
  const auto layout =
      options.perFrame ? zuCacheFileInterface::eFilePerFrame : zuCacheFileInterface::eSingleFile;
  Watch watch(progress, out);
  if (!zuCacheFileInterface::convertFromPc2(
          source.summary().file.c_str(), target.folder.c_str(), target.baseName.c_str(), layout,
          options.compact ? "ncc" : "ncx", rate.ticksPerFrame, part, Watched(&watch))) {
    ThrowIfInterrupted();
    throw Failed(out, "Conversion from PC2 to NC failed: " + watch.why);
  }
  watch.bar.reset();
  SayHowFarValuesMove(out, target.baseName, part.maximumError);
  SayWhenTimesMove(source, options.snapFrames ? rate.ticksPerFrame : rate.exactTicks);
  return watch.samples;
}

std::uint64_t NCToPC2(Source& source, const std::string& out, const ConvertOptions& options,
                      bool progress) {
  const NCName name(source.summary().file);
  const TickRate rate(source.summary().rate);
  const ChannelSummary& channel = source.summary().FindChannel(options.channel);
  auto part = PartOf(source, channel, options.range);
  part.exactRate = rate.exactRate;
  Watch watch(progress, out);
  if (!zuCacheFileInterface::convertToPc2(out.c_str(), name.folder.c_str(), name.baseName.c_str(),
                                          static_cast<unsigned int>(channel.index),
                                          rate.ticksPerFrame, part, Watched(&watch))) {
    ThrowIfInterrupted();
    throw Failed(out, "Conversion from NC to PC2 failed: " + watch.why);
  }
  watch.bar.reset();
  SayWhatPC2Rounds(channel, out);
  return watch.samples;
}

std::uint64_t CopyAny(Source& source, const std::string& out, Format to,
                      const ConvertOptions& options, bool progress) {
  CopyOptions copy;
  copy.target = out;
  copy.targetFormat = to;
  copy.channel = options.channel;
  copy.range = options.range;
  copy.resample = options.resample;
  copy.pad = options.pad;
  copy.snapFrames = options.snapFrames;
  copy.perFrame = options.perFrame;
  copy.compact = options.compact;
  copy.compactEncoding = options.compactEncoding;
  copy.maxError = options.maxError;
  copy.progress = progress;
  return Copy(source, copy);
}

// The library's conversion takes the samples of an evenly spaced channel of points.
bool LibraryTakesIt(Source& source, const ConvertOptions& options) {
  const ChannelSummary& channel = source.summary().FindChannel(options.channel);
  const TickRate rate(source.summary().rate);
  double start = 0;
  double interval = 0;
  return channel.components == 3 &&
         source.cache().NC().evenSpacing(static_cast<unsigned int>(channel.index),
                                         rate.ticksPerFrame, rate.exactRate, start, interval);
}

// PC2 and NC are converted into each other by the library, with times and intervals carried over
// exactly; every other pair, and what --resample and --pad change, is copied moment by moment.
std::uint64_t Transfer(Source& source, const std::string& out, Format to,
                       const ConvertOptions& asked, bool progress) {
  ConvertOptions options = asked;
  const Format from = source.summary().format;
  const bool oneChannel = to == KelCache::ePC2Format || from == KelCache::ePC2Format;
  if (oneChannel && options.channel.empty()) options.channel = "0";
  source.summary().ExpectRate();
  const bool asStored = options.resample == EResample::eNone && options.pad == EPad::eNone;
  if (asStored && from == KelCache::ePC2Format && to == KelCache::eNCFormat) {
    return PC2ToNC(source, out, options, progress);
  }
  if (asStored && from == KelCache::eNCFormat && to == KelCache::ePC2Format &&
      LibraryTakesIt(source, options)) {
    return NCToPC2(source, out, options, progress);
  }
  return CopyAny(source, out, to, options, progress);
}

void ExpectOptionsFor(Format to, const std::string& out, const ConvertOptions& options) {
  ExpectWritten(to, out);
  const bool hasLayouts = RowOf(to).hasLayouts;
  if (!hasLayouts && (options.perFrame || options.compact || options.snapFrames)) {
    throw ToolError(eUsage,
                    out + ": --per-frame, --compact and --snap-frames are for NC caches (.xml)");
  }
  const bool isNewest = options.compactEncoding == zuCacheFileInterface::kCompactEncoding;
  if (!options.compact && (options.maxError || !isNewest)) {
    throw ToolError(eUsage, out + ": --max-error and --compact-encoding go with --compact");
  }
  if (options.maxError && !isNewest) {
    throw ToolError(eUsage, out + ": compact encoding 1 is lossless; --max-error needs encoding 2");
  }
  if (hasLayouts && options.pad != EPad::eNone) {
    throw ToolError(eUsage, out + ": --pad is for PC2 files; NC caches hold arrays of any length");
  }
}

struct Converted {
  std::uint64_t samples = 0;
  bool missing = false;  // of those that the source promises
};

Converted ConvertOne(const std::string& in, const std::string& out, const ConvertOptions& options,
                     bool progress) {
  const Format from = FormatOf(in, "");
  const Format to = FormatOf(out, "");
  ExpectOptionsFor(to, out, options);
  ExpectReadable(in);
  const Target target(out, options.force);
  target.ExpectOtherThan(in);
  CatchInterrupts();
  Source source(in, from, options.rate);
  Converted converted;
  converted.missing = SayWhatIsMissing(source, options.range);
  converted.samples = Transfer(source, out, to, options, progress);
  return converted;
}

// --to is a frame or a format.
void TakeTo(ConvertOptions* options) {
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
void ExpectTargetsDiffer(const ConvertOptions& options) {
  std::map<std::string, std::string> sources;  // by target
  for (const std::string& in : options.files) {
    const std::string out = TargetOf(in, options.extension);
    const std::string place = std::filesystem::weakly_canonical(out).string();
    const auto [other, isNew] = sources.emplace(place, in);
    if (!isNew) throw SharedTarget(out, other->second, in);
  }
}

EExit Convert(const ConvertOptions& options) {
  if (options.extension.empty()) {
    if (options.files.size() != 2) throw ToolError(eUsage, "convert takes IN and OUT, or --to EXT");
    const Converted converted = ConvertOne(options.files[0], options.files[1], options, true);
    PrintCopied(options.files[1], converted.samples);
    return converted.missing ? eFound : eDone;
  }
  ExpectTargetsDiffer(options);
  return RunJobs(
      options.files, options.jobs,
      [&](const std::string& in) {
        const std::string out = TargetOf(in, options.extension);
        const Converted converted = ConvertOne(in, out, options, false);
        return JobResult{converted.missing ? eFound : eDone,
                         {out + ": " + std::to_string(converted.samples) + " samples written"}};
      },
      "converted");
}

}  // namespace

void AddConvert(CLI::App& app, Work* work) {
  const auto options = std::make_shared<ConvertOptions>();
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
                   "before it, linear the points between two")
      ->check(OneOf(WordsOf(kResample)));
  verb->add_option("--pad", options->padWord,
                   "PC2: what samples of fewer points than others get for the rest, last being "
                   "their own last point")
      ->check(OneOf(WordsOf(kPad)));
  verb->add_flag("--snap-frames", options->snapFrames,
                 "NC: move frames to whole ticks: 23.976 frames per second become 24");
  verb->add_option("--channel", options->channel,
                   "Channel number or name (default: all for NC, the first for PC2)");
  verb->add_option("--from", options->range.from, "First scene frame")
      ->type_name("FRAME")
      ->check(AnyNumber());
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
    *work = [=] { return Convert(*options); };
  });
}

}  // namespace kelcache
