#include "tools/check.h"

#include <array>
#include <map>
#include <memory>

#include "tools/jobs.h"
#include "tools/json.h"
#include "tools/terminal_watch.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct Typed : ManyOptions {
  CheckOptions how;
  std::optional<double> limit;
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

JobResult CheckFile(const Input& input, const Typed& options, bool alone) {
  TerminalWatch watch(alone && !options.json);
  const Checked checked = Check(input.path, options.how, watch);
  JobResult result;
  Json findings = Json::array();
  std::map<EFinding, std::size_t> counts;
  for (const Finding& finding : checked.findings) {
    result.status = eFound;
    ++counts[finding.kind];
    result.lines.push_back(input.path + ": " + finding.Line(ChannelName(checked, finding)));
    findings.push_back(FindingJson(checked, finding));
  }
  const std::size_t count = checked.findings.size();
  result.result =
      count == 0 ? "clean" : std::to_string(count) + (count == 1 ? " finding" : " findings");
  result.cells = {std::to_string(checked.samples),
                  checked.points ? std::to_string(*checked.points) : "-"};
  Json numbers = {{"samples", checked.samples}, {"points", OrNull(checked.points)}};
  for (const EFinding kind : kKinds) {
    result.cells.push_back(counts[kind] == 0 ? "-" : std::to_string(counts[kind]));
    numbers[NameOf(kind)] = counts[kind];
  }
  result.notes = watch.notes();
  result.report = {{"format", checked.format},
                   {"findings", std::move(findings)},
                   {"counts", std::move(numbers)}};
  return result;
}

EExit CheckTyped(const Typed& options) {
  JobsOutput output{"check", "clean",      options.json, {{"samples", 7}, {"points", 8}},
                    true,    options.shard};
  for (const EFinding kind : kKinds) output.columns.push_back({NameOf(kind), 0});
  const std::vector<Input> inputs = options.Inputs();
  const bool alone = !AreSeveral(inputs);
  return RunJobs(
      inputs, options.jobs, [&](const Input& input) { return CheckFile(input, options, alone); },
      output);
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
  verb->add_option("FILE", options->files, "Caches and folders of caches")->required();
  verb->add_option("--channel", options->how.channels,
                   "Channel number or name, given for each (default: all)")
      ->allow_extra_args(false);
  verb->add_option("--max-move", options->limit,
                   "Find every point, and box, that moves further than that from one sample to the "
                   "next, instead of what is out of step")
      ->check(NumberFromZero());
  AddRangeOptions(verb, &options->how.range);
  AddManyOptions(verb, options.get());
  AddAsOption(verb, &options->asName);
  verb->callback([=] {
    if (options->limit) options->how.maxMove = *options->limit;
    options->how.asName = options->asName;
    *work = [=] { return CheckTyped(*options); };
  });
}

}  // namespace kelcache
