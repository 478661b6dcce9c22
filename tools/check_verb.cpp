#include "tools/check.h"

#include <array>
#include <map>
#include <memory>
#include <mutex>

#include "tools/jobs.h"
#include "tools/json.h"
#include "tools/terminal_watch.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct Typed : CheckOptions {
  std::vector<std::string> files;
  std::optional<double> limit;
  unsigned int jobs = 1;
  bool json = false;
};

constexpr std::array kKinds = {EFinding::eNotFinite, EFinding::eJump,      EFinding::eJumpBack,
                               EFinding::eFrozen,    EFinding::eCollapsed, EFinding::eCountChange,
                               EFinding::eGap,       EFinding::eMissing};

const std::string& ChannelName(const Checked& checked, const Finding& finding) {
  static const std::string kNone;
  const auto index = static_cast<std::size_t>(finding.channel);
  return finding.first && index < checked.channelNames.size() ? checked.channelNames[index] : kNone;
}

Json FindingJson(const Checked& checked, const Finding& finding) {
  Json json = {{"kind", NameOf(finding.kind)},
               {"text", finding.Line(ChannelName(checked, finding))},
               {"channel", finding.first ? Json(finding.channel) : Json(nullptr)}};
  json["firstFrame"] = finding.first ? OrNull(finding.first->frame) : Json(nullptr);
  json["lastFrame"] = finding.last ? OrNull(finding.last->frame) : Json(nullptr);
  json["start"] = finding.first ? Json(finding.first->seconds) : Json(nullptr);
  json["end"] = finding.last ? Json(finding.last->seconds) : Json(nullptr);
  json["point"] = OrNull(finding.point);
  return json;
}

JobResult CheckFile(const std::string& file, const Typed& options, bool alone) {
  TerminalWatch watch(alone && !options.json);
  const Checked checked = Check(file, options, watch);
  JobResult result;
  if (!checked.findings.empty()) result.status = eFound;
  result.row = {file, std::to_string(checked.samples),
                checked.points ? std::to_string(*checked.points) : "-"};
  std::map<EFinding, std::size_t> counts;
  for (const Finding& finding : checked.findings) {
    ++counts[finding.kind];
    result.lines.push_back(file + ": " + finding.Line(ChannelName(checked, finding)));
  }
  for (const EFinding kind : kKinds) {
    result.row.push_back(counts[kind] == 0 ? "-" : std::to_string(counts[kind]));
  }
  if (options.json) {
    result.lines.clear();
    result.report = {{"format", checked.format},
                     {"samples", checked.samples},
                     {"points", OrNull(checked.points)},
                     {"findings", Json::array()}};
    for (const Finding& finding : checked.findings) {
      result.report["findings"].push_back(FindingJson(checked, finding));
    }
  }
  return result;
}

EExit CheckTyped(const Typed& options) {
  JobsOutput output{"clean", "check", options.json, {"file", "samples", "points"}};
  for (const EFinding kind : kKinds) output.columns.emplace_back(NameOf(kind));
  const bool alone = options.files.size() == 1;
  return RunJobs(
      options.files, options.jobs,
      [&](const std::string& file) { return CheckFile(file, options, alone); }, output);
}

}  // namespace

void AddCheck(CLI::App& app, Work* work) {
  const auto options = std::make_shared<Typed>();
  CLI::App* verb = app.add_subcommand(
      "check",
      "Finds frames whose content is likely to be wrong. That is in caches that are whole in form: "
      "values that are not finite, points or boxes that jump, samples that are frozen in the midst "
      "of motion, that jump back to an earlier one or have all points in one place, numbers of "
      "points that change, gaps in time. A finding is a line of output. Exit status 1 when "
      "something was found.");
  verb->footer(
      "Without --max-move, a point jumps when it moves 8 times as fast as it does itself before "
      "and after and as the fastest point does in the typical step; or when it suddenly does so "
      "and "
      "leaves the box. Samples are frozen when they repeat one in the midst of motion, and repeats "
      "are no habit of the cache.\n"
      "Examples:\n  kelcache check *.pc2 sim.xml --jobs 4\n  kelcache check crowd.abc --max-move "
      "50");
  verb->add_option("FILE", options->files, "The caches")->required();
  verb->add_option("--channel", options->channels,
                   "Channel number or name, given for each (default: all)")
      ->allow_extra_args(false);
  verb->add_option("--max-move", options->limit,
                   "Find every point, and box, that moves further than that from one sample to the "
                   "next, instead of what is out of step")
      ->check(NumberFromZero());
  verb->add_option("--from", options->range.from, "First scene frame (default: the cache's first)")
      ->type_name("FRAME")
      ->check(AnyNumber());
  verb->add_option("--to", options->range.to, "Last scene frame (default: the cache's last)")
      ->type_name("FRAME")
      ->check(AnyNumber());
  verb->add_flag("--json", options->json, "Print a JSON object for each cache, in a line each");
  verb->add_option("--jobs", options->jobs, "Caches read at the same time")
      ->transform(WholeNumberFrom(1))
      ->capture_default_str();
  AddAsOption(verb, &options->asName);
  verb->callback([=] {
    if (options->limit) options->maxMove = *options->limit;
    *work = [=] { return CheckTyped(*options); };
  });
}

}  // namespace kelcache
