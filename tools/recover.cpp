#include <cstdio>
#include <memory>

#include "backends/zuPointCache2IO.h"
#include "tools/cache_file.h"
#include "tools/terminal.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

// The reports of a recovery go to standard error as they come; the last one is kept.
struct Reports {
  std::string file;
  std::string last;

  static void Print(void* context, const char* line) {
    auto* reports = static_cast<Reports*>(context);
    if (!reports->last.empty()) reports->Flush();
    reports->last = line;
  }
  void Flush() {
    PrintError(file + ": " + last);
    last.clear();
  }
};

EExit Recover(const std::string& file) {
  const Format format = FormatOf(file, "");
  Reports reports{file, ""};
  unsigned int saved = 0;
  bool recovered = false;
  const char* unit = "whole samples";
  if (format == kelsdk::KelCache::ePC2Format) {
    recovered = kelsdk::zuPointCache2IO::recover(file.c_str(), saved, Reports::Print, &reports);
  } else if (format == kelsdk::KelCache::eNCFormat) {
    const NCName name(file);
    unit = "whole time blocks";
    recovered = kelsdk::zuCacheFileInterface::recover(name.folder.c_str(), name.baseName.c_str(),
                                                      saved, Reports::Print, &reports);
  } else {
    throw ToolError(eUsage, file + ": only PC2 and NC caches are written, and so recovered");
  }
  if (!recovered) {
    throw Failed(file, reports.last.empty() ? "nothing could be recovered" : reports.last);
  }
  if (!reports.last.empty()) reports.Flush();
  PrintLine(stdout, file + ": " + std::to_string(saved) + ' ' + unit + " saved");
  return eDone;
}

}  // namespace

void AddRecover(CLI::App& app, Work* work) {
  const auto file = std::make_shared<std::string>();
  CLI::App* verb = app.add_subcommand(
      "recover",
      "Completes what a dead writer left behind. The whole samples of the PC2 or NC cache that was "
      "being written take the cache's place; it says how many they are.");
  verb->footer("Example:\n  kelcache recover sim.xml");
  verb->add_option("FILE", *file, "The cache that was being written")->required();
  verb->callback([=] { *work = [=] { return Recover(*file); }; });
}

}  // namespace kelcache
