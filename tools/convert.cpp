#include "tools/convert.h"

#include <cmath>
#include <exception>
#include <utility>

#include "tools/readable.h"
#include "tools/target.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;
using kelsdk::zuCacheFileInterface;

// Follows one of the library's own conversions, through which nothing may be thrown.
class Conversion {
 public:
  Conversion(const std::string& file, Watch& watch) : file_(file), watch_(watch) {}

  zuCacheFileInterface::conversionWatch Watched() {
    zuCacheFileInterface::conversionWatch watched;
    watched.proceed = Proceed;
    watched.report = Report;
    watched.context = this;
    return watched;
  }

  std::uint64_t samples() const { return samples_; }

  // After one that failed: throws what ended it.
  [[noreturn]] void Fail(const std::string& what) const {
    if (thrown_ != nullptr) std::rethrow_exception(thrown_);
    watch_.ThrowIfInterrupted();
    throw Failed(file_, what + " failed: " + why_);
  }

 private:
  static bool Proceed(void* context, unsigned int done, unsigned int total) {
    auto& conversion = *static_cast<Conversion*>(context);
    try {
      if (conversion.samples_ == 0) conversion.watch_.Begin(total, conversion.file_);
      conversion.samples_ = done;
      conversion.watch_.Show(done);
      conversion.watch_.ThrowIfInterrupted();
      return true;
    } catch (...) {
      conversion.thrown_ = std::current_exception();
      return false;
    }
  }
  static void Report(void* context, const char* line) {
    static_cast<Conversion*>(context)->why_ = line;
  }

  std::string file_;
  Watch& watch_;
  std::uint64_t samples_ = 0;
  std::string why_;
  std::exception_ptr thrown_;
};

bool IsWhole(double ticks) {
  return std::fabs(ticks - std::round(ticks)) < 1e-3;
}

// Sample times that are no whole ticks are rounded to them.
void NoteWhenTimesMove(const Source& source, double ticksPerFrame, Watch& watch) {
  const PC2Summary& pc2 = *source.summary().pc2;
  const bool exact = IsWhole(pc2.startFrame * ticksPerFrame) &&
                     (pc2.samples < 2 || IsWhole(pc2.sampleRate * ticksPerFrame));
  if (!exact) {
    watch.Note(
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
                      Watch& watch) {
  const NCName target(out);
  const TickRate rate(source.summary().rate);
  const ChannelSummary& channel = *source.summary().Choose(options.channels).front();
  auto part = PartOf(source, channel, options.range);
  if (!options.snapFrames) part.exactRate = rate.exactRate;
  part.compactEncoding = options.compactEncoding;
  if (options.maxError) {
    TrackOptions whole;
    whole.range = options.range;
    const auto track = MakeTrack(source, channel, whole);
    part.maximumError = options.maxError->Of(*track, watch);
  }
  const auto layout =
      options.perFrame ? zuCacheFileInterface::eFilePerFrame : zuCacheFileInterface::eSingleFile;
  Conversion conversion(out, watch);
  if (!zuCacheFileInterface::convertFromPc2(
          source.summary().file.c_str(), target.folder.c_str(), target.baseName.c_str(), layout,
          options.compact ? "ncc" : "ncx", rate.ticksPerFrame, part, conversion.Watched())) {
    conversion.Fail("Conversion from PC2 to NC");
  }
  watch.End();
  NoteHowFarValuesMove(out, target.baseName, part.maximumError, watch);
  NoteWhenTimesMove(source, options.snapFrames ? rate.ticksPerFrame : rate.exactTicks, watch);
  return conversion.samples();
}

std::uint64_t NCToPC2(Source& source, const std::string& out, const ConvertOptions& options,
                      Watch& watch) {
  const NCName name(source.summary().file);
  const TickRate rate(source.summary().rate);
  const ChannelSummary& channel = *source.summary().Choose(options.channels).front();
  auto part = PartOf(source, channel, options.range);
  part.exactRate = rate.exactRate;
  Conversion conversion(out, watch);
  if (!zuCacheFileInterface::convertToPc2(out.c_str(), name.folder.c_str(), name.baseName.c_str(),
                                          static_cast<unsigned int>(channel.index),
                                          rate.ticksPerFrame, part, conversion.Watched())) {
    conversion.Fail("Conversion from NC to PC2");
  }
  watch.End();
  NoteWhatPC2Rounds(channel, out, watch);
  return conversion.samples();
}

std::uint64_t CopyAny(Source& source, const std::string& out, Format to,
                      const ConvertOptions& options, Watch& watch) {
  CopyOptions copy;
  copy.target = out;
  copy.targetFormat = to;
  copy.channels = options.channels;
  copy.take.range = options.range;
  copy.take.every = options.every;
  copy.take.resample = options.resample;
  copy.take.resampleRate = options.resampleRate;
  if (options.transform.Moves()) {
    copy.take.transform.emplace(options.transform, source.summary());
  }
  if (options.resampleRate.IsValid()) {
    const double perSecond = options.resampleRate.PerSecond();
    copy.map.scale = perSecond / source.summary().rate.PerSecond();
    copy.targetRate = options.resampleRate;
  }
  copy.pad = options.pad;
  copy.snapFrames = options.snapFrames;
  static_cast<NCForm&>(copy) = static_cast<const NCForm&>(options);
  copy.maxError = options.maxError;
  return Copy(source, copy, watch);
}

// The library's conversion takes the samples of an evenly spaced channel of points.
bool LibraryTakesIt(Source& source, const ConvertOptions& options) {
  const ChannelSummary& channel = *source.summary().Choose(options.channels).front();
  const TickRate rate(source.summary().rate);
  double start = 0;
  double interval = 0;
  return channel.components == 3 &&
         source.cache().NC().evenSpacing(static_cast<unsigned int>(channel.index),
                                         rate.ticksPerFrame, rate.exactRate, start, interval);
}

// A PC2 cache holds one channel: the one that was chosen, else the first.
ChannelChoice TheOneOf(const CacheSummary& summary, const ConvertOptions& options) {
  if (options.channels.IsAll() && !options.edits) return {{"0"}, {}};
  const auto chosen = summary.Choose(options.channels);
  if (chosen.size() <= 1)
    return {{chosen.empty() ? "0" : std::to_string(chosen.front()->index)}, {}};
  throw ToolError(eUsage, summary.file + ": a PC2 cache holds one channel and " +
                              std::to_string(chosen.size()) +
                              " were to be written; --channel chooses one");
}

// Samples of caches that store seconds are counted at the new rate; those of a cache that stores
// frames alone lie at times that only the user can tell.
void SettleRates(const std::string& in, const FormatRow& row, ConvertOptions* options) {
  if (row.assumesRate) {
    if (options->rate.IsValid()) return;
    throw ToolError(eUsage, in + ": stores no frame rate; --source-rate tells it");
  }
  if (options->rate.IsValid()) {
    throw ToolError(eUsage, in + ": keeps times; --source-rate is for PC2 files");
  }
  options->rate = std::exchange(options->resampleRate, {0, 0});
}

// PC2 and NC are converted into each other by the library, with times and intervals carried over
// exactly; every other pair, and what an option changes, is copied moment by moment.
std::uint64_t Transfer(Source& source, const std::string& out, Format to,
                       const ConvertOptions& asked, Watch& watch) {
  ConvertOptions options = asked;
  const Format from = source.summary().format;
  if (to == KelCache::ePC2Format) options.channels = TheOneOf(source.summary(), options);
  source.summary().ExpectRate();
  const bool asStored = options.resample == EResample::eNone && options.pad == EPad::eNone &&
                        options.every == 1 && !options.transform.Moves();
  if (asStored && from == KelCache::ePC2Format && to == KelCache::eNCFormat) {
    return PC2ToNC(source, out, options, watch);
  }
  if (asStored && from == KelCache::eNCFormat && to == KelCache::ePC2Format &&
      LibraryTakesIt(source, options)) {
    return NCToPC2(source, out, options, watch);
  }
  return CopyAny(source, out, to, options, watch);
}

void ExpectOptionsFor(Format to, const std::string& out, const ConvertOptions& options) {
  ExpectWritten(to, out);
  const bool hasLayouts = RowOf(to).hasLayouts;
  if (!hasLayouts && (options.perFrame || options.compact || options.snapFrames)) {
    throw ToolError(eUsage,
                    out + ": --per-frame, --compact and --snap-frames are for NC caches (.xml)");
  }
  if (!hasLayouts && (options.singleFile || options.raw)) {
    throw ToolError(eUsage, out + ": --single-file and --raw are for NC caches (.xml)");
  }
  const TransformOptions& transform = options.transform;
  if (!transform.Moves() && transform.NamesAny()) {
    throw ToolError(eUsage, out +
                                ": --points, --vectors, --normals and --leave go with --scale, "
                                "--units, --axis, --rotate or --translate");
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

}  // namespace

const std::map<std::string, EResample> kResample = {
    {"hold", EResample::eHold}, {"linear", EResample::eLinear}, {"cubic", EResample::eCubic}};
const std::map<std::string, EPad> kPad = {
    {"last", EPad::eLast}, {"nan", EPad::eNan}, {"zero", EPad::eZero}};

Copied Convert(const std::string& in, const std::string& out, const ConvertOptions& options,
               Watch& watch) {
  const Format from = FormatOf(in, "");
  const Format to = FormatOf(out, "");
  ExpectOptionsFor(to, out, options);
  ExpectReadable(in);
  const Target target(out, options.force);
  target.ExpectOtherThan(in);
  ConvertOptions settled = options;
  if (options.resampleRate.IsValid()) SettleRates(in, RowOf(from), &settled);
  Source source(in, from, settled.rate);
  if (options.edits && from == to && RowOf(to).hasLayouts) settled.KeepThatOf(source);
  Copied converted;
  converted.missing = NoteWhatIsMissing(source, options.range, watch);
  converted.samples = Transfer(source, out, to, settled, watch);
  return converted;
}

}  // namespace kelcache
