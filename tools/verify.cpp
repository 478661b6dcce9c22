#include <memory>

#include "backends/AlembicInterface.h"
#include "backends/zuPointCache2IO.h"
#include "tools/cache_file.h"
#include "tools/jobs.h"
#include "tools/leftovers.h"
#include "tools/readable.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct VerifyOptions {
  std::vector<std::string> files;
  std::string asName;
  unsigned int jobs = 1;
};

class Problems {
 public:
  explicit Problems(const std::string& file) : file_(file) {}

  void Add(const std::string& problem) {
    result_.lines.push_back(file_ + ": " + problem);
    result_.status = eFound;
  }
  /// For the back-ends' reports.
  static void Report(void* problems, const char* line) {
    static_cast<Problems*>(problems)->Add(line);
  }
  JobResult Take() { return std::move(result_); }

 private:
  std::string file_;
  JobResult result_;
};

void VerifyPC2(const std::string& file, Problems* problems) {
  kelsdk::zuPointCache2IO::verify(file.c_str(), Problems::Report, problems);
}

void VerifyAlembic(const std::string& file, Problems* problems) {
  AlembicInterface reader(true);
  if (!reader.Open(file.c_str(), 1)) return problems->Add(reader.GetErrorString());
  reader.Verify(Problems::Report, problems);
}

void VerifyNC(const std::string& file, Problems* problems) {
  const NCName name(file);
  kelsdk::zuCacheFileInterface::verify(name.folder.c_str(), name.baseName.c_str(), Problems::Report,
                                       problems);
}

// Whether the system fails to deliver a file of a cache that has problems: then it cannot be told
// whether the cache is damaged. Data files that are missing are damage.
bool SystemFailsOn(const std::string& file, Format format) {
  if (SystemFails(file)) return true;
  if (format != kelsdk::KelCache::eNCFormat) return false;
  struct Search {
    NCName name;
    bool fails = false;
  } search{NCName(file)};
  const auto look = [](void* context, const char* name, bool /*isReplaceable*/) {
    auto* found = static_cast<Search*>(context);
    found->fails = found->fails || SystemFails(found->name.folder + name);
  };
  kelsdk::zuCacheFileInterface::dataFilesInTheWay(search.name.folder.c_str(),
                                                  search.name.baseName.c_str(), look, &search);
  return search.fails;
}

JobResult VerifyFile(const std::string& file, const std::string& asName) {
  const Format format = FormatOf(file, asName);
  TellOfLeftovers(file, format);
  ExpectReadable(file);
  Problems problems(file);
  switch (format) {
    case kelsdk::KelCache::ePC2Format: VerifyPC2(file, &problems); break;
    case kelsdk::KelCache::eNCFormat: VerifyNC(file, &problems); break;
    case kelsdk::KelCache::eAlembicFormat: VerifyAlembic(file, &problems); break;
    case kelsdk::KelCache::eUnknownFormat: break;
  }
  JobResult result = problems.Take();
  if (result.status == eFound && SystemFailsOn(file, format)) result.status = eFailed;
  return result;
}

EExit Verify(const VerifyOptions& options) {
  return RunJobs(
      options.files, options.jobs,
      [&](const std::string& file) { return VerifyFile(file, options.asName); }, "sound");
}

}  // namespace

void AddVerify(CLI::App& app, Work* work) {
  const auto options = std::make_shared<VerifyOptions>();
  CLI::App* verb = app.add_subcommand(
      "verify",
      "Checks every size, index and checksum of caches. Each is read whole; a problem is a line of "
      "output, a sound cache none. Exit status 1 for damage, 3 for a file that the system does not "
      "deliver.");
  verb->footer("Example:\n  kelcache verify *.xml *.pc2 *.abc --jobs 8");
  verb->add_option("FILE", options->files, "The caches")->required();
  verb->add_option("--jobs", options->jobs, "Caches read at the same time")
      ->transform(WholeNumberFrom(1))
      ->capture_default_str();
  AddAsOption(verb, &options->asName);
  verb->callback([=] { *work = [=] { return Verify(*options); }; });
}

}  // namespace kelcache
