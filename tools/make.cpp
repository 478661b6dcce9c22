#include <memory>

#include "tools/cache_file.h"
#include "tools/output.h"
#include "tools/sheet.h"
#include "tools/target.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct MakeOptions {
  std::string file;
  unsigned int points = 0;
  unsigned int frames = 0;
  double fps = 24;
  double start = 0;
  bool force = false;
};

EExit Make(const MakeOptions& options) {
  const Format format = FormatOf(options.file, "");
  if (format != kelsdk::KelCache::ePC2Format) {
    throw ToolError(eUsage, options.file + ": make writes .pc2");
  }
  const Target target(options.file, options.force);
  CacheFile cache(options.file, format);
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
  cache->CloseFile(&status);
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
  verb->add_option("FILE", options->file, "The cache to write, .pc2")->required();
  verb->add_option("--points", options->points, "Points per frame")->required();
  verb->add_option("--frames", options->frames, "Frames")->required();
  verb->add_option("--fps", options->fps, "Frames per second")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  verb->add_option("--start", options->start, "Scene frame of the first sample")
      ->capture_default_str();
  verb->add_flag("--force", options->force, "Replace a file that is there");
  verb->callback([=] { *work = [=] { return Make(*options); }; });
}

}  // namespace kelcache
