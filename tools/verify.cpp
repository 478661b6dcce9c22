#include <memory>

#include "tools/formats.h"
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
  JobResult Take() { return std::move(result_); }

 private:
  std::string file_;
  JobResult result_;
};

JobResult VerifyFile(const std::string& file, const std::string& asName) {
  const Format format = FormatOf(file, asName);
  TellOfLeftovers(file, format);
  ExpectReadable(file);
  Problems problems(file);
  const FormatRow& row = RowOf(format);
  row.verify(file, [&](const std::string& line) { problems.Add(line); });
  JobResult result = problems.Take();
  // Where the system fails to deliver a file it cannot be told whether the cache is damaged. Data
  // files that are missing are damage.
  if (result.status == eFound && row.anyFile(file, SystemFails)) result.status = eFailed;
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
