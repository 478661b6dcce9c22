#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "backends/zuPointCache2IO.h"
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

struct ConvertOptions {
  std::vector<std::string> files;  // IN OUT, or with `extension` any number of IN
  std::string toWord;              // --to as typed: a frame or a format
  std::string extension;           // the format that --to names
  std::string channel;
  FrameRange range;
  double rate = 0;
  bool perFrame = false;
  bool compact = false;
  bool force = false;
  unsigned int jobs = 1;
};

// Follows one of the library's own conversions.
struct Watch {
  Watch(const std::string& in, bool progress) : file(in), show(progress) {}

  static bool Proceed(void* context, unsigned int done, unsigned int total) {
    auto* watch = static_cast<Watch*>(context);
    if (watch->bar == nullptr)
      watch->bar = std::make_unique<Progress>(total, watch->show, watch->file);
    watch->bar->Show(done);
    watch->samples = done;
    return !WasInterrupted();
  }
  static void Report(void* context, const char* line) { static_cast<Watch*>(context)->why = line; }

  std::string file;
  bool show;
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

// Standard error, so that what changes on the way is not silent.
void Say(const std::string& file, const char* what) {
  PrintError(file + ": " + what);
}

bool IsWhole(double ticks) {
  return std::fabs(ticks - std::round(ticks)) < 1e-3;
}

// Sample times that are no whole ticks are rounded to them.
void SayWhenTimesMove(const std::string& in, int ticksPerFrame) {
  kelsdk::zuPointCache2IO reader;
  if (!reader.initialize(in.c_str(), kelsdk::zuPointCache2IO::readMode)) return;
  const double start = double(reader.startFrame) * ticksPerFrame;
  const double step = double(reader.sampleRate) * ticksPerFrame;
  const bool exact = IsWhole(start) && (reader.sampleCount < 2 || IsWhole(step));
  if (!exact) {
    Say(in,
        "sample times were rounded to ticks, 6000 to the second; at another --rate they may "
        "fall on ticks");
  }
}

unsigned int PC2ToNC(const std::string& in, const std::string& out, const ConvertOptions& options,
                     bool progress) {
  const NCName target(out);
  const int ticks = TicksPerFrameOf(options.rate > 0 ? options.rate : kAssumedFrameRate);
  const auto layout =
      options.perFrame ? zuCacheFileInterface::eFilePerFrame : zuCacheFileInterface::eSingleFile;
  Watch watch(in, progress);
  if (!zuCacheFileInterface::convertFromPc2(
          in.c_str(), target.folder.c_str(), target.baseName.c_str(), layout,
          options.compact ? "ncc" : "ncx", ticks, Watched(&watch))) {
    throw Failed(in, "Conversion from PC2 to NC failed: " + watch.why);
  }
  watch.bar.reset();
  SayWhenTimesMove(in, ticks);
  return watch.samples;
}

unsigned int NCToPC2(const std::string& in, const std::string& out, const ConvertOptions& options,
                     bool progress) {
  const NCName source(in);
  double rate = options.rate;
  unsigned int channel = 0;
  bool regular = true;
  {
    const Source opened(in, KelCache::eNCFormat, 0);
    const ChannelSummary& chosen =
        opened.FindChannel(options.channel.empty() ? "0" : options.channel);
    channel = static_cast<unsigned int>(chosen.index);
    regular = chosen.sampling == "regular";
    if (rate <= 0) rate = opened.summary().frameRate.value_or(kAssumedFrameRate);
  }
  Watch watch(in, progress);
  if (!zuCacheFileInterface::convertToPc2(out.c_str(), source.folder.c_str(),
                                          source.baseName.c_str(), channel, TicksPerFrameOf(rate),
                                          Watched(&watch))) {
    throw Failed(in, "Conversion from NC to PC2 failed: " + watch.why);
  }
  watch.bar.reset();
  if (!regular) Say(in, "the samples are not evenly spaced: one per frame was taken");
  return watch.samples;
}

unsigned int CopyAny(const std::string& in, Format from, const std::string& out, Format to,
                     const ConvertOptions& options, bool progress) {
  Source source(in, from, options.rate);
  CopyOptions copy;
  copy.target = out;
  copy.targetFormat = to;
  copy.channel = options.channel;
  copy.range = options.range;
  copy.perFrame = options.perFrame;
  copy.compact = options.compact;
  copy.progress = progress;
  return Copy(source, copy);
}

// The library converts whole caches between PC2 and NC itself, with times and intervals carried
// over exactly; every other pair, and a part of a cache, is copied moment by moment.
unsigned int ConvertOne(const std::string& in, const std::string& out,
                        const ConvertOptions& options, bool progress) {
  const Format from = FormatOf(in, "");
  const Format to = FormatOf(out, "");
  if (to == KelCache::eAlembicFormat) {
    throw ToolError(eUsage, out + ": Alembic archives are only read");
  }
  ExpectReadable(in);
  const Target target(out, options.force);
  target.ExpectOtherThan(in);
  CatchInterrupts();
  const bool whole = options.range.IsOpen();
  if (whole && from == KelCache::ePC2Format && to == KelCache::eNCFormat) {
    return PC2ToNC(in, out, options, progress);
  }
  if (whole && from == KelCache::eNCFormat && to == KelCache::ePC2Format) {
    return NCToPC2(in, out, options, progress);
  }
  return CopyAny(in, from, out, to, options, progress);
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

EExit Convert(const ConvertOptions& options) {
  if (options.extension.empty()) {
    if (options.files.size() != 2) throw ToolError(eUsage, "convert takes IN and OUT, or --to EXT");
    PrintCopied(options.files[1], ConvertOne(options.files[0], options.files[1], options, true));
    return eDone;
  }
  return RunJobs(
      options.files, options.jobs,
      [&](const std::string& in) {
        std::filesystem::path out(in);
        out.replace_extension(options.extension);
        const unsigned int samples = ConvertOne(in, out.string(), options, false);
        return JobResult{eDone,
                         {out.string() + ": " + std::to_string(samples) + " samples written"}};
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
  verb->add_option(
          "--rate", options->rate,
          "Frames per second. PC2, which stores none, is read at it (else 24); Alembic and "
          "parts of NC caches are then sampled at every frame of it")
      ->check(NumberAboveZero());
  verb->add_option("--channel", options->channel,
                   "Channel number or name (default: all for NC, the first for PC2)");
  verb->add_option("--from", options->range.from, "First scene frame")
      ->type_name("FRAME")
      ->check(AnyNumber());
  verb->add_flag("--per-frame", options->perFrame, "NC: one data file per frame");
  verb->add_flag("--compact", options->compact, "NC: lossless compression (ncc)");
  verb->add_flag("--force", options->force, "Replace a cache that is there");
  verb->callback([=] {
    TakeTo(options.get());
    *work = [=] { return Convert(*options); };
  });
}

}  // namespace kelcache
