#include <cmath>
#include <cstdint>
#include <map>
#include <memory>

#include "tools/copy.h"
#include "tools/interrupt.h"
#include "tools/jobs.h"
#include "tools/output.h"
#include "tools/sheet.h"
#include "tools/target.h"
#include "tools/terminal.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

using kelsdk::zuCacheData;

struct MakeOptions {
  std::string file;
  unsigned int points = 0;
  unsigned int frames = 0;
  kelsdk::KelFrameRate fps = {24, 1};
  double start = 0;
  std::vector<std::string> channels;
  std::vector<std::string> types;
  bool perFrame = false;
  bool compact = false;
  bool force = false;
  bool json = false;
};

// Earlier spellings.
const std::map<std::string, std::string> kTypeAliases = {{"double", "float64"},
                                                         {"doubleVector", "float64[3]"},
                                                         {"float", "float32"},
                                                         {"floatVector", "float32[3]"}};

std::string TakeAlias(std::string& word) {
  const auto alias = kTypeAliases.find(word);
  if (alias != kTypeAliases.end()) word = alias->second;
  return {};
}

ElementType TypeOfChannel(const MakeOptions& options, size_t channel) {
  if (options.types.empty()) return zuCacheData::eNCFloatVectorArray;
  return kElementTypes.at(options.types[std::min(channel, options.types.size() - 1)]);
}

// The sheet in the element type of a channel. Vector channels hold it whole; scalar ones as many of
// its first values as there are points; integers the heights in thousandths.
class SheetValues {
 public:
  explicit SheetValues(unsigned int points) : sheet_(points), points_(points) {}

  void MoveTo(unsigned int frame) { values_ = sheet_.At(frame); }

  /// Valid until the next call.
  Array As(ElementType type) {
    switch (type) {
      case zuCacheData::eNCFloatArray:
      case zuCacheData::eNCFloatVectorArray:
        floats_.assign(values_, values_ + size_t{points_} * kelsdk::GetTypeLength(type));
        return {floats_.data(), ValueType::eFloat32, points_, kelsdk::GetTypeLength(type)};
      case zuCacheData::eNCInt32Array:
        integers_.resize(points_);
        for (size_t i = 0; i < points_; ++i) {
          integers_[i] = static_cast<std::int32_t>(std::lround(values_[i * 3 + 1] * 1000));
        }
        return {integers_.data(), ValueType::eInt32, points_, 1};
      default: return {values_, ValueType::eFloat64, points_, kelsdk::GetTypeLength(type)};
    }
  }

 private:
  Sheet sheet_;
  unsigned int points_;
  const double* values_ = nullptr;
  std::vector<float> floats_;
  std::vector<std::int32_t> integers_;
};

size_t BytesPerElement(ElementType type) {
  const size_t value =
      type == zuCacheData::eNCDoubleArray || type == zuCacheData::eNCDoubleVectorArray
          ? sizeof(double)
          : sizeof(float);
  return value * kelsdk::GetTypeLength(type);
}

ToolError Impossible(const MakeOptions& options, const std::string& why) {
  return {eUsage, options.file + ": " + why};
}

void ExpectSampleToFit(const MakeOptions& options, ElementType type) {
  const std::uint64_t bytes = std::uint64_t{options.points} * BytesPerElement(type);
  if (bytes > UINT32_MAX) {
    throw Impossible(options, "a sample of " + std::to_string(options.points) + " points takes " +
                                  std::to_string(bytes) +
                                  " bytes, more than the 4294967295 that 32 bits count");
  }
}

// The tick nearest to a frame.
double TicksOf(const MakeOptions& options, unsigned int frame, const TickRate& rate) {
  return std::round((options.start + frame) * rate.exactTicks);
}

void ExpectPC2ToFit(const MakeOptions& options) {
  ExpectSampleToFit(options, zuCacheData::eNCFloatVectorArray);
  if (options.frames > INT32_MAX) {
    throw Impossible(options, std::to_string(options.frames) +
                                  " samples: 2147483647 are the most of a PC2 cache");
  }
  if (!(std::fabs(static_cast<float>(options.start) - options.start) <= kFrameTolerance)) {
    throw Impossible(options, "frame " + RoundedText(options.start) +
                                  " does not fit the 32-bit float of a PC2 cache's first frame");
  }
}

void ExpectNCToFit(const MakeOptions& options, size_t channels, const TickRate& rate) {
  for (size_t i = 0; i < channels; ++i) ExpectSampleToFit(options, TypeOfChannel(options, i));
  if (options.frames == 0) return;
  for (const unsigned int frame : {0U, options.frames - 1}) {
    const double ticks = TicksOf(options, frame, rate);
    if (!(ticks >= INT32_MIN && ticks <= INT32_MAX)) {
      throw Impossible(options, "frame " + RoundedText(options.start + frame) +
                                    " lies beyond the 2147483647 ticks, 6000 to the second, that "
                                    "an NC cache counts");
    }
  }
}

void MakePC2(const MakeOptions& options) {
  ExpectPC2ToFit(options);
  const auto sink = MakePC2Sink(options.file, options.points, options.frames,
                                static_cast<float>(options.start), 1);
  SheetValues sheet(options.points);
  Progress progress(options.frames, true, options.file);
  for (unsigned int frame = 0; frame < options.frames; ++frame) {
    ThrowIfInterrupted();
    sheet.MoveTo(frame);
    sink->Write(0, 0, sheet.As(zuCacheData::eNCFloatVectorArray));
    progress.Show(frame + 1);
  }
  sink->Finish();
}

std::vector<SinkChannel> ChannelsOf(const MakeOptions& options) {
  std::vector<std::string> names = options.channels;
  if (names.empty()) names.push_back(NCName(options.file).baseName);
  std::vector<SinkChannel> channels;
  for (const std::string& name : names) {
    const size_t index = channels.size();
    channels.push_back({name, index == 0 ? "Points" : "", TypeOfChannel(options, index)});
  }
  return channels;
}

void MakeNC(const MakeOptions& options) {
  const std::vector<SinkChannel> channels = ChannelsOf(options);
  const TickRate rate(options.fps);
  ExpectNCToFit(options, channels.size(), rate);
  const auto sink =
      MakeNCSink(options.file,
                 {options.perFrame, options.compact, rate.ticksPerFrame, rate.exactRate}, channels);
  SheetValues sheet(options.points);
  Progress progress(options.frames, true, options.file);
  for (unsigned int frame = 0; frame < options.frames; ++frame) {
    ThrowIfInterrupted();
    sheet.MoveTo(frame);
    const int ticks = static_cast<int>(TicksOf(options, frame, rate));
    for (unsigned int i = 0; i < channels.size(); ++i) {
      sink->Write(i, ticks, sheet.As(channels[i].type));
    }
    progress.Show(frame + 1);
  }
  sink->Finish();
}

void Make(const MakeOptions& options) {
  const Format format = FormatOf(options.file, "");
  ExpectWritten(format, options.file);
  const bool forNC =
      !options.channels.empty() || !options.types.empty() || options.perFrame || options.compact;
  if (!RowOf(format).hasLayouts && forNC) {
    throw ToolError(eUsage, options.file +
                                ": --channels, --type, --per-frame and --compact are "
                                "for NC caches (.xml)");
  }
  const Target target(options.file, options.force);
  CatchInterrupts();
  RowOf(format).hasLayouts ? MakeNC(options) : MakePC2(options);
}

EExit MakeTyped(const MakeOptions& options) {
  if (options.json) {
    return Report("make", options.file, [&] {
      Make(options);
      JobResult result;
      result.report = {{"counts", {{"samples", options.frames}, {"points", options.points}}}};
      return result;
    });
  }
  Make(options);
  return eDone;
}

}  // namespace

void AddMake(CLI::App& app, Work* work) {
  const auto options = std::make_shared<MakeOptions>();
  CLI::App* verb = app.add_subcommand("make",
                                      "Writes a sheet of points that moves in waves. It is the "
                                      "same at every run: for trying things "
                                      "out and for benchmarks.");
  verb->footer(
      "Examples:\n  kelcache make test.pc2 --points 100000 --frames 240\n"
      "  kelcache make test.xml --points 500 --frames 24 --channels P,v,id \\\n"
      "    --type 'float32[3],float32[3],int32'");
  verb->add_option("FILE", options->file, "The cache to write, .pc2 or .xml")->required();
  verb->add_option("--points", options->points, "Points per frame")
      ->required()
      ->transform(WholeNumberFrom(0));
  verb->add_option("--frames", options->frames, "Frames")
      ->required()
      ->transform(WholeNumberFrom(0));
  verb->add_option("--fps", options->fps, "Frames per second (default: 24)")
      ->type_name("FPS")
      ->check(FrameRate());
  verb->add_option("--start", options->start, "Scene frame of the first sample")
      ->check(AnyNumber())
      ->capture_default_str();
  verb->add_option("--channels", options->channels,
                   "NC: names of the channels (default: one, named after the file)")
      ->delimiter(',');
  verb->add_option("--type", options->types,
                   "NC: element types of the channels, the last one for all further ones (default: "
                   "float32[3])")
      ->delimiter(',')
      ->transform(CLI::Validator(TakeAlias, ""))
      ->check(OneOf({"float32", "float32[3]", "float64", "float64[3]", "int32"}));
  verb->add_flag("--per-frame", options->perFrame, "NC: one data file per frame");
  verb->add_flag("--compact", options->compact, "NC: lossless compression (ncc)");
  verb->add_flag("--force", options->force, "Replace a cache that is there");
  AddJsonOption(verb, &options->json);
  verb->callback([=] { *work = [=] { return MakeTyped(*options); }; });
}

}  // namespace kelcache
