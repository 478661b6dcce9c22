#include "tools/diff.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <set>

#include "tools/jobs.h"
#include "tools/terminal_watch.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct Typed : DiffOptions {
  std::string a;
  std::string b;
  ManyOptions many;
};

EExit StatusOf(const Differences& found) {
  return found.count != 0 || found.missing ? eFound : eDone;
}

std::string LargestText(const Differences& found) {
  return "largest difference " + ShortestText(found.largest) + " at " + found.where;
}

JobResult Compare(const std::string& a, const std::string& b, const Typed& options) {
  TerminalWatch watch(false);
  Json findings = Json::array();
  JobResult result;
  const auto note = [&](const std::string& line) {
    findings.push_back({{"kind", "difference"}, {"text", line}});
  };
  const Differences found = Diff(a, b, options, note, watch);
  result.status = StatusOf(found);
  result.result = result.status == eDone ? "equal"
                  : found.count == 0     ? "samples are missing"
                                         : std::to_string(found.count) +
                                           (found.count == 1 ? " difference" : " differences");
  if (found.largest > 0) result.result += ", " + LargestText(found);
  result.notes = watch.notes();
  result.report = {{"other", b},
                   {"findings", std::move(findings)},
                   {"counts", {{"differences", found.count}}},
                   {"largest", found.largest},
                   {"where", found.where}};
  return result;
}

EExit DiffTwo(const Typed& options) {
  TerminalWatch watch(true);
  const auto print = [](const std::string& line) { PrintLine(stdout, line); };
  const Differences found = Diff(options.a, options.b, options, print, watch);
  if (found.largest > 0) print(LargestText(found));
  return StatusOf(found);
}

// Caches of two folders: those of one name, else those whose names differ in the extension alone.
class Pairs {
 public:
  Pairs(const std::vector<Input>& a, const std::vector<Input>& b) {
    for (const Input& input : b) {
      byName_[input.name] = &input;
      byStem_[StemOf(input)].push_back(&input);
    }
    for (const Input& input : a) ++stemsOfA_[StemOf(input)];
    std::set<const Input*> paired;
    for (const Input& input : a) {
      const Input* const other = Find(input);
      if (other != nullptr) paired.insert(other);
      others_[input.path] = other != nullptr ? other->path : "";
      inputs.push_back(input);
    }
    for (const Input& input : b) {
      if (!paired.contains(&input)) inputs.push_back(input);
    }
  }

  /// "" for a cache of the first folder that has none; empty for one of the second folder.
  std::optional<std::string> OtherOf(const Input& input) const {
    const auto other = others_.find(input.path);
    return other != others_.end() ? std::optional(other->second) : std::nullopt;
  }

  std::vector<Input> inputs;  ///< those of the first folder, then what only the second has

 private:
  static std::string StemOf(const Input& input) {
    return std::filesystem::path(input.name).replace_extension().string();
  }

  const Input* Find(const Input& input) const {
    const auto named = byName_.find(input.name);
    if (named != byName_.end()) return named->second;
    const auto alike = byStem_.find(StemOf(input));
    const bool isOnlyOne =
        alike != byStem_.end() && alike->second.size() == 1 && stemsOfA_.at(StemOf(input)) == 1;
    return isOnlyOne ? alike->second.front() : nullptr;
  }

  std::map<std::string, const Input*> byName_;
  std::map<std::string, std::vector<const Input*>> byStem_;
  std::map<std::string, std::size_t> stemsOfA_;
  std::map<std::string, std::string> others_;
};

JobResult OnlyIn(const std::string& folder) {
  JobResult result;
  result.status = eFound;
  result.result = "only in " + folder;
  result.report = {{"findings", {{{"kind", "only"}, {"text", result.result}}}}};
  return result;
}

EExit DiffFolders(const Typed& options) {
  ManyOptions a = options.many;
  ManyOptions b = options.many;
  a.shard = b.shard = "1/1";
  a.files = {options.a};
  b.files = {options.b};
  const std::vector<Input> inA = a.Inputs();
  const std::vector<Input> inB = b.Inputs();
  Pairs pairs(inA, inB);
  const Shard shard = ParseShard(options.many.shard).value_or(Shard{});
  std::erase_if(pairs.inputs, [&](const Input& input) { return !shard.Holds(input.name); });
  return RunJobs(pairs.inputs, options.many.jobs,
                 [&](const Input& input) {
                   const std::optional<std::string> other = pairs.OtherOf(input);
                   if (!other) return OnlyIn(options.b);
                   return other->empty() ? OnlyIn(options.a) : Compare(input.path, *other, options);
                 },
                 {"diff", "equal", options.many.json});
}

EExit DiffTyped(const Typed& options) {
  std::error_code unknown;
  const bool foldersA = std::filesystem::is_directory(options.a, unknown);
  const bool foldersB = std::filesystem::is_directory(options.b, unknown);
  if (foldersA != foldersB) {
    throw ToolError(eUsage, "diff takes two caches or two folders, not one of each");
  }
  if (foldersA) return DiffFolders(options);
  if (!options.many.json) return DiffTwo(options);
  return Report("diff", options.a, [&] { return Compare(options.a, options.b, options); });
}

}  // namespace

void AddDiff(CLI::App& app, Work* work) {
  const auto options = std::make_shared<Typed>();
  CLI::App* verb = app.add_subcommand(
      "diff",
      "Compares two caches of any formats sample by sample. Counts, times and values as stored; "
      "prints a line per difference and the largest one. Of two folders the caches of one name are "
      "compared, whatever their formats, in a line each. Exit status 0 equal, 1 different.");
  verb->footer(
      "Examples:\n  kelcache diff a.pc2 b.xml --tolerance 1e-6\n"
      "  kelcache diff caches compact --recursive --jobs 4");
  verb->add_option("A", options->a, "One cache or folder")->required();
  verb->add_option("B", options->b, "The other")->required();
  verb->add_option("--channel", options->channel,
                   "Channel number or name (default: all; the first where one is PC2)");
  verb->add_option("--tolerance", options->tolerance, "Values that differ by no more are equal")
      ->check(NumberFromZero())
      ->capture_default_str();
  AddManyOptions(verb, &options->many);
  verb->callback([=] { *work = [=] { return DiffTyped(*options); }; });
}

}  // namespace kelcache
