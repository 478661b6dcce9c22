#include <cstdio>
#include <memory>

#include "backends/zuPointCache2IO.h"
#include "tools/cache_file.h"
#include "tools/terminal.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

using kelsdk::zuCacheFileInterface;
using kelsdk::zuPointCache2IO;

struct RecoverOptions {
  std::string file;
  bool force = false;
};

void Collect(void* lines, const char* line) {
  static_cast<std::vector<std::string>*>(lines)->emplace_back(line);
}

bool Recover(const RecoverOptions& options, std::vector<std::string>* lines) {
  const std::string& file = options.file;
  unsigned int saved = 0;
  switch (FormatOf(file, "")) {
    case kelsdk::KelCache::ePC2Format: {
      zuPointCache2IO::recoverOptions how;
      how.force = options.force;
      return zuPointCache2IO::recover(file.c_str(), how, saved, Collect, lines);
    }
    case kelsdk::KelCache::eNCFormat: {
      const NCName name(file);
      zuCacheFileInterface::recoverOptions how;
      how.force = options.force;
      return zuCacheFileInterface::recover(name.folder.c_str(), name.baseName.c_str(), how, saved,
                                           Collect, lines);
    }
    default:
      throw ToolError(eUsage, file + ": only PC2 and NC caches are written, and so recovered");
  }
}

// What was saved and kept is the verb's output. Of a failure the last line tells why.
EExit RecoverAndTell(const RecoverOptions& options) {
  std::vector<std::string> lines;
  const bool recovered = Recover(options, &lines);
  std::string why = "nothing could be recovered";
  if (!recovered && !lines.empty()) {
    why = lines.back();
    lines.pop_back();
  }
  for (const std::string& line : lines) {
    if (recovered) {
      PrintLine(stdout, options.file + ": " + line);
    } else {
      PrintError(options.file + ": " + line);
    }
  }
  if (!recovered) throw Failed(options.file, why);
  return eDone;
}

}  // namespace

void AddRecover(CLI::App& app, Work* work) {
  const auto options = std::make_shared<RecoverOptions>();
  CLI::App* verb = app.add_subcommand(
      "recover",
      "Completes what a dead writer of a PC2 or NC cache left behind and says what it saved under "
      "which name. That is the cache's own, or FILE.recovered beside a whole cache that stands "
      "there.");
  verb->footer("Examples:\n  kelcache recover sim.xml\n  kelcache recover sim.xml --force");
  verb->add_option("FILE", options->file, "The cache that was being written")->required();
  verb->add_flag("--force", options->force,
                 "Put it in the place of a whole cache too, which is kept as FILE.before-recover");
  verb->callback([=] { *work = [=] { return RecoverAndTell(*options); }; });
}

}  // namespace kelcache
