#include <cmath>
#include <map>
#include <memory>

#include "tools/cache_file.h"
#include "tools/copy.h"
#include "tools/output.h"
#include "tools/sheet.h"
#include "tools/target.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;
using kelsdk::KelTime;

struct MakeOptions {
  std::string file;
  unsigned int points = 0;
  unsigned int frames = 0;
  double fps = 24;
  double start = 0;
  std::vector<std::string> channels;
  std::vector<std::string> types;
  bool perFrame = false;
  bool compact = false;
  bool force = false;
};

const std::map<std::string, KelCache::ENCDataType> kTypes = {
    {"double", KelCache::eNCDoubleArray},
    {"doubleVector", KelCache::eNCDoubleVectorArray},
    {"int32", KelCache::eNCInt32Array},
    {"float", KelCache::eNCFloatArray},
    {"floatVector", KelCache::eNCFloatVectorArray},
};

void MakePC2(CacheFile& cache, const MakeOptions& options) {
  kelsdk::KelStatus status;
  if (!cache->OpenFileForWrite(options.start, options.fps, options.frames, options.points,
                               &status)) {
    cache.Fail(status, "could not be created");
  }
  Sheet sheet(options.points);
  Progress progress(options.frames, true);
  for (unsigned int frame = 0; frame < options.frames; ++frame) {
    if (!cache->Write(frame, sheet.At(frame), &status)) {
      cache.Fail(status, "sample " + std::to_string(frame) + " could not be written");
    }
    progress.Show(frame + 1);
  }
}

// Vector channels hold the sheet; scalar ones the first coordinates of it, integers in thousandths.
bool WriteChannel(CacheFile& cache, int channel, KelCache::ENCDataType type, KelTime time,
                  double* sheet, std::vector<int>* integers, unsigned int points) {
  if (type != KelCache::eNCInt32Array) {
    return cache->Write(channel, time, sheet, points, nullptr);
  }
  for (unsigned int i = 0; i < points; ++i) {
    (*integers)[i] = static_cast<int>(std::lround(sheet[size_t{i} * 3 + 1] * 1000));
  }
  return cache->Write(channel, time, integers->data(), points, nullptr);
}

KelCache::ENCDataType TypeOfChannel(const MakeOptions& options, size_t channel) {
  if (options.types.empty()) return KelCache::eNCFloatVectorArray;
  return kTypes.at(options.types[std::min(channel, options.types.size() - 1)]);
}

void MakeNC(CacheFile& cache, const MakeOptions& options) {
  kelsdk::KelStatus status;
  std::vector<std::string> names = options.channels;
  if (names.empty()) names.push_back(NCName(options.file).baseName);
  if (!cache->OpenFileForWrite(
          options.perFrame ? KelCache::eNCFilePerFrame : KelCache::eNCSingleFile, options.fps,
          names[0].c_str(), options.compact ? KelCache::eNCBinaryC : KelCache::eNCBinaryX,
          TypeOfChannel(options, 0), nullptr, &status)) {
    cache.Fail(status, "could not be created");
  }
  for (size_t i = 1; i < names.size(); ++i) {
    unsigned int index = 0;
    if (!cache->AddChannel(names[i].c_str(), TypeOfChannel(options, i), "", index, &status)) {
      cache.Fail(status, "channel " + names[i] + " could not be added");
    }
  }
  // Whole ticks, so that no frame is cut to the tick before it.
  const int ticksPerFrame = TickRate(kelsdk::KelFrameRate::FromDouble(options.fps)).ticksPerFrame;
  Sheet sheet(options.points);
  std::vector<int> integers(options.points);
  Progress progress(options.frames, true);
  for (unsigned int frame = 0; frame < options.frames; ++frame) {
    const double ticks = std::round((options.start + frame) * ticksPerFrame);
    KelTime time(static_cast<long long>(ticks) * (KelTime::kUnitsPerSecond / 6000));
    double* values = sheet.At(frame);
    bool written = cache->BeginWriteAt(time, &status);
    for (size_t i = 0; written && i < names.size(); ++i) {
      written = WriteChannel(cache, static_cast<int>(i), TypeOfChannel(options, i), time, values,
                             &integers, options.points);
    }
    if (!written || !cache->EndWriteAt(&status)) {
      cache.Fail(status, "frame " + std::to_string(frame) + " could not be written");
    }
    progress.Show(frame + 1);
  }
}

EExit Make(const MakeOptions& options) {
  const Format format = FormatOf(options.file, "");
  if (format == KelCache::eAlembicFormat) {
    throw ToolError(eUsage, options.file + ": Alembic archives are only read");
  }
  const bool forNC =
      !options.channels.empty() || !options.types.empty() || options.perFrame || options.compact;
  if (format == KelCache::ePC2Format && forNC) {
    throw ToolError(eUsage, options.file +
                                ": --channels, --type, --per-frame and --compact are "
                                "for NC caches (.xml)");
  }
  const Target target(options.file, options.force);
  CacheFile cache(options.file, format);
  if (format == KelCache::ePC2Format) {
    MakePC2(cache, options);
  } else {
    MakeNC(cache, options);
  }
  cache->CloseFile(nullptr);
  target.ExpectReplaced();
  return eDone;
}

}  // namespace

void AddMake(CLI::App& app, Work* work) {
  const auto options = std::make_shared<MakeOptions>();
  CLI::App* verb = app.add_subcommand(
      "make",
      "Writes a sheet of points that moves in waves, the same at every run: for trying "
      "things out and for benchmarks");
  verb->add_option("FILE", options->file, "The cache to write, .pc2 or .xml")->required();
  verb->add_option("--points", options->points, "Points per frame")->required();
  verb->add_option("--frames", options->frames, "Frames")->required();
  verb->add_option("--fps", options->fps, "Frames per second")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  verb->add_option("--start", options->start, "Scene frame of the first sample")
      ->capture_default_str();
  verb->add_option("--channels", options->channels,
                   "NC: names of the channels (default: one, named after the file)")
      ->delimiter(',');
  verb->add_option("--type", options->types,
                   "NC: element types of the channels, the last one for all further ones: double, "
                   "doubleVector, int32, float, floatVector (default)")
      ->delimiter(',')
      ->check(CLI::IsMember({"double", "doubleVector", "int32", "float", "floatVector"}));
  verb->add_flag("--per-frame", options->perFrame, "NC: one data file per frame");
  verb->add_flag("--compact", options->compact, "NC: lossless compression (ncc)");
  verb->add_flag("--force", options->force, "Replace a cache that is there");
  verb->callback([=] { *work = [=] { return Make(*options); }; });
}

}  // namespace kelcache
