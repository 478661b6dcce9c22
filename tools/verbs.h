#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "tools/formats.h"
#include "tools/inputs.h"
#include "tools/moments.h"
#include "tools/options.h"
#include "tools/tool_error.h"

namespace kelcache {

/// A verb's work, run once the command line is parsed. What it throws, main turns into a line on
/// standard error and an exit status.
using Work = std::function<EExit()>;

/// The option --as, common to the verbs that open a file.
inline void AddAsOption(CLI::App* verb, std::string* asName) {
  verb->add_option("--as", *asName, "Read the file as this format, whatever its extension")
      ->check(OneOf(FormatNames()));
}

/// What verbs that take many files and folders have in common.
struct ManyOptions {
  std::vector<std::string> files;
  std::string asName;
  bool recursive = false;
  std::string shard;  // "": all
  unsigned int jobs = 1;
  bool json = false;

  std::vector<Input> Inputs(const std::string& except = "") const {
    return FindInputs(files, {asName, recursive, ParseShard(shard).value_or(Shard{}), except});
  }
};

/// All options of these but the files.
inline void AddManyOptions(CLI::App* verb, ManyOptions* options) {
  verb->add_flag("--recursive", options->recursive, "Look in the folders of folders, too");
  verb->add_option("--shard", options->shard,
                   "Take one of N parts of all caches, which are told apart by their names: for "
                   "several machines")
      ->type_name("I/N")
      ->check(ShardNumber());
  verb->add_option("--jobs", options->jobs, "Caches at the same time")
      ->transform(WholeNumberFrom(1))
      ->capture_default_str();
  verb->add_flag("--json", options->json,
                 "Print a report as JSON; of several caches, one in a line each");
}

/// --from of a verb that takes the frames in a range.
inline void AddFromOption(CLI::App* verb, FrameRange* range) {
  verb->add_option("--from", range->from, "First scene frame (default: the cache's first)")
      ->type_name("FRAME")
      ->check(AnyNumber());
}

/// --from and --to.
inline void AddRangeOptions(CLI::App* verb, FrameRange* range) {
  AddFromOption(verb, range);
  verb->add_option("--to", range->to, "Last scene frame (default: the cache's last)")
      ->type_name("FRAME")
      ->check(AnyNumber());
}

/// The option --json of a verb that takes one file.
inline void AddJsonOption(CLI::App* verb, bool* json) {
  verb->add_flag("--json", *json, "Print a report as JSON");
}

// Each adds its verb to the command line and sets `work` when the verb is chosen.
void AddInfo(CLI::App& app, Work* work);
void AddPlay(CLI::App& app, Work* work);
void AddDump(CLI::App& app, Work* work);
void AddView(CLI::App& app, Work* work);
void AddMake(CLI::App& app, Work* work);
void AddCheck(CLI::App& app, Work* work);
void AddVerify(CLI::App& app, Work* work);
void AddRecover(CLI::App& app, Work* work);
void AddConvert(CLI::App& app, Work* work);
void AddDiff(CLI::App& app, Work* work);
void AddRetime(CLI::App& app, Work* work);
void AddTrim(CLI::App& app, Work* work);
void AddExtract(CLI::App& app, Work* work);
void AddMerge(CLI::App& app, Work* work);
void AddResample(CLI::App& app, Work* work);
void AddTransform(CLI::App& app, Work* work);
void AddClean(CLI::App& app, Work* work);
void AddReport(CLI::App& app, Work* work);
void AddCompletion(CLI::App& app, Work* work);
void AddManual(CLI::App& app, Work* work);
void AddHelp(CLI::App& app, Work* work);

}  // namespace kelcache
