#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "tools/channel_kind.h"
#include "tools/follow.h"
#include "tools/interrupt.h"
#include "tools/jobs.h"
#include "tools/leftovers.h"
#include "tools/moments.h"
#include "tools/output.h"
#include "tools/summary.h"
#include "tools/terminal_watch.h"
#include "tools/tool_error.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

using kelsdk::CacheProgress;

Json ChannelJson(const ChannelSummary& channel) {
  return {{"index", channel.index},
          {"name", OrNull(channel.name)},
          {"type", OrNull(channel.type)},
          {"interpretation", OrNull(channel.interpretation)},
          {"samples", channel.samples},
          {"points", OrNull(channel.points)},
          {"start", OrNull(channel.start)},
          {"end", OrNull(channel.end)},
          {"sampling", OrNull(channel.sampling)},
          {"interval", OrNull(channel.interval)},
          {"maximumError", channel.maximumError}};
}

Json SummaryJson(const CacheSummary& summary) {
  Json json = {
      {"format", RowOf(summary.format).name},
      {"frameRate", OrNull(summary.frameRate())},
      {"frameRateSource", summary.frameRateSource},
      {"exactFrameRate", OrNull(summary.exactRate())},
      {"ticksPerFrame", OrNull(summary.ticksPerFrame)},
      {"complete", summary.complete},
      {"missing", OrNull(summary.complete ? std::nullopt : std::optional(summary.WhatIsMissing()))},
      {"firstFrame", OrNull(FirstFrame(summary))},
      {"lastFrame", OrNull(LastFrame(summary))},
      {"start", OrNull(summary.start())},
      {"end", OrNull(summary.end())},
      {"span", OrNull(summary.span())},
      {"duration", OrNull(summary.duration())},
      {"fileSize", summary.fileSize},
      {"promisedSize", OrNull(summary.promisedSize)},
      {"channels", Json::array()}};
  for (const ChannelSummary& channel : summary.channels) {
    json["channels"].push_back(ChannelJson(channel));
  }
  if (!summary.dataFiles.empty()) {
    for (const DataFileSummary& file : summary.dataFiles) {
      json["dataFiles"].push_back({{"name", file.name}, {"size", file.size}});
    }
  }
  if (summary.compact) {
    json["compact"] = {{"encoding", summary.compact->encoding},
                       {"arrayBytes", OrNull(summary.compact->arrayBytes)},
                       {"storedBytes", OrNull(summary.compact->storedBytes)}};
  }
  if (summary.pc2) {
    json["pc2"] = {{"version", summary.pc2->version},
                   {"points", summary.pc2->points},
                   {"startFrame", summary.pc2->startFrame},
                   {"sampleRate", summary.pc2->sampleRate},
                   {"samples", summary.pc2->samples}};
  }
  json["counts"] = {{"channels", summary.channels.size()}, {"bytes", summary.fileSize}};
  return json;
}

void PrintRow(const char* label, const std::string& text) {
  std::string row = label;
  row.resize(12, ' ');
  PrintLine(stdout, row + ' ' + text);
}

void PrintRange(const char* label, const std::optional<double>& from,
                const std::optional<double>& to, const char* unit) {
  if (from && to) PrintRow(label, RoundedText(*from) + " to " + RoundedText(*to) + unit);
}

std::string Seconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6g s", seconds);
  return text;
}

void PrintChannel(const ChannelSummary& channel) {
  std::string line = "  " + std::to_string(channel.index);
  if (channel.name) line += " \"" + *channel.name + '"';
  if (channel.type) line += " " + *channel.type;
  if (channel.interpretation) line += " (" + *channel.interpretation + ")";
  line += ": " + std::to_string(channel.samples) + " samples";
  if (channel.points) line += " of " + std::to_string(*channel.points) + " elements";
  if (channel.start) line += ", " + Seconds(*channel.start) + " to " + Seconds(*channel.end);
  if (channel.sampling) line += ", " + *channel.sampling;
  if (channel.interval) line += " every " + Seconds(*channel.interval);
  if (channel.maximumError != 0) line += ", within " + RoundedText(channel.maximumError);
  PrintLine(stdout, line);
}

std::string CompactText(const CompactSummary& compact) {
  std::string text = "encoding " + std::to_string(compact.encoding);
  if (!compact.arrayBytes || *compact.storedBytes == 0) return text;
  char ratio[32];
  std::snprintf(ratio, sizeof ratio, "%.2f",
                double(*compact.arrayBytes) / double(*compact.storedBytes));
  return text + ", arrays of " + SizeText(*compact.arrayBytes) + " in " +
         SizeText(*compact.storedBytes) + ", " + ratio + " times smaller";
}

std::string RateText(const CacheSummary& summary) {
  if (!summary.rate.IsValid()) return "unknown (" + summary.frameRateSource + ")";
  std::string text = RoundedText(summary.rate.PerSecond()) + " frames/s (";
  if (summary.exactRate()) text += *summary.exactRate() + ", ";
  if (summary.ticksPerFrame) {
    text += std::to_string(*summary.ticksPerFrame) + " ticks per frame, ";
  }
  return text + summary.frameRateSource + ")";
}

void PrintText(const CacheSummary& summary) {
  PrintRow("file", summary.file);
  PrintRow("format", RowOf(summary.format).name);
  PrintRow("frame rate", RateText(summary));
  PrintRange("frames", FirstFrame(summary), LastFrame(summary), "");
  PrintRange("times", summary.start(), summary.end(), " s");
  if (summary.span()) PrintRow("span", Seconds(*summary.span()) + " from first to last sample");
  if (summary.duration()) PrintRow("duration", Seconds(*summary.duration()));
  std::string size =
      SizeText(summary.fileSize) + " (" + std::to_string(summary.fileSize) + " bytes)";
  if (summary.promisedSize) {
    size += summary.complete && summary.fileSize == *summary.promisedSize
                ? ", as the header promises"
                : ", the header promises " + std::to_string(*summary.promisedSize);
  }
  PrintRow("size", size);
  if (summary.compact) PrintRow("compact", CompactText(*summary.compact));
  if (!summary.complete) {
    PrintRow("complete", "no: " + summary.WhatIsMissing());
  }
  if (summary.pc2) {
    PrintRow("points", std::to_string(summary.pc2->points));
    PrintRow("samples", std::to_string(summary.pc2->samples) + ", one every " +
                            RoundedText(summary.pc2->sampleRate) + " frames");
  }
  std::printf("channels     %zu\n", summary.channels.size());
  for (const ChannelSummary& channel : summary.channels) PrintChannel(channel);
  constexpr size_t kShown = 10;
  if (!summary.dataFiles.empty()) std::printf("data files   %zu\n", summary.dataFiles.size());
  for (size_t i = 0; i < summary.dataFiles.size() && i < kShown; ++i) {
    const DataFileSummary& file = summary.dataFiles[i];
    PrintLine(stdout, "  " + file.name + ": " + SizeText(file.size));
  }
  if (summary.dataFiles.size() > kShown) {
    std::printf("  and %zu more (--json lists all)\n", summary.dataFiles.size() - kShown);
  }
}

struct InfoOptions : ManyOptions {
  bool tree = false;
  bool follow = false;
  double interval = 1;              // of --follow, seconds
  std::optional<double> lastFrame;  // likewise, that is expected
};

std::string AgeOf(const std::string& file) {
  std::error_code unknown;
  const auto written = std::filesystem::last_write_time(file, unknown);
  if (unknown) return "-";
  using std::chrono::seconds;
  const auto age = std::filesystem::file_time_type::clock::now() - written;
  const auto whole = std::max<long long>(0, std::chrono::duration_cast<seconds>(age).count());
  return AgeText(static_cast<std::uint64_t>(whole));
}

// "(24)" for a rate that the format does not store and nothing tells.
std::string RateCell(const CacheSummary& summary) {
  if (!summary.rate.IsValid()) return "-";
  const std::string rate = RoundedText(summary.rate.PerSecond());
  return summary.frameRateSource == "assumed" ? '(' + rate + ')' : rate;
}

std::vector<std::string> CellsOf(const CacheSummary& summary) {
  unsigned int samples = 0;
  for (const ChannelSummary& channel : summary.channels) {
    samples = std::max(samples, channel.samples);
  }
  const auto positions = PositionChannels(summary);
  const bool knowsPoints = !positions.empty() && positions.front()->points;
  return {
      RowOf(summary.format).name, knowsPoints ? std::to_string(*positions.front()->points) : "-",
      std::to_string(samples),    RateCell(summary),
      SizeText(summary.fileSize), AgeOf(summary.file)};
}

void PrintTree(const Input& input, const std::string& asName) {
  const Format format = FormatOf(input.path, asName);
  const FormatRow& row = RowOf(format);
  if (row.listTree == nullptr) {
    throw ToolError(eUsage, input.path + ": only Alembic archives hold a tree");
  }
  CacheFile cache(input.path, format);
  cache.OpenForRead();
  row.listTree(cache, [](const std::string& line) { PrintLine(stdout, line); });
}

// What is left of dead writers is looked for beside one cache: of each of a folder that would list
// the folder again.
JobResult InfoOn(const Input& input, const InfoOptions& options, bool alone) {
  const Format format = FormatOf(input.path, options.asName);
  TerminalWatch watch(false);
  if (alone) NoteLeftovers(input.path, format, watch);
  CacheFile cache(input.path, format);
  cache.OpenForRead();
  const CacheSummary summary = Summarise(cache);
  JobResult result;
  result.result = summary.complete ? "complete" : summary.WhatIsMissing();
  result.bytes = summary.fileSize;
  result.notes = watch.notes();
  if (options.json) {
    result.report = SummaryJson(summary);
  } else if (alone) {
    PrintText(summary);
  } else {
    result.cells = CellsOf(summary);
  }
  return result;
}

// A writer that ended before its cache was in place; empty: before it was looked for.
JobResult Unpublished(const std::string& file, const std::optional<CacheProgress>& last) {
  JobResult result;
  result.status = eFound;
  std::string line;
  if (!last) {
    line = "no writer is at work on it, and one has died; kelcache recover " + file +
           " saves what it left";
    result.report = {{"state", "not at work"}};
  } else {
    const std::string samples = std::to_string(last->samples) + " samples";
    if (last->state == CacheProgress::eGivenUp) {
      line = "its writer gave up after " + samples + ", and nothing was put in place";
    } else if (last->samples == 0) {
      line = "its writer died before a sample was whole";
    } else {
      line = "its writer died after " + samples + "; kelcache recover " + file + " saves them";
    }
    result.report = {{"state", StateText(last->state)},
                     {"counts", {{"samples", last->samples}, {"bytes", last->bytes}}}};
  }
  result.lines = {file + ": " + line};
  result.notes = {line};
  return result;
}

JobResult FollowOn(const Input& input, const InfoOptions& options) {
  const FormatRow& row = RowOf(FormatOf(input.path, options.asName));
  if (row.follow == nullptr) {
    throw ToolError(eUsage, input.path + ": " + row.whyNotWritten + ", so none can be followed");
  }
  const auto last =
      FollowWriter(input.path, row, {options.interval, options.lastFrame, options.json});
  const bool isPublished = last && last->state == CacheProgress::ePublished;
  if (!isPublished && (last || row.leftovers(input.path) != 0)) {
    return Unpublished(input.path, last);
  }
  JobResult result = InfoOn(input, options, true);
  if (!isPublished) {
    constexpr char kNobody[] = "no writer is at work on it";
    PrintError(input.path + ": " + kNobody);
    result.notes.emplace_back(kNobody);
  }
  if (result.result != "complete") result.status = eFound;
  result.report["state"] = isPublished ? "published" : "not at work";
  return result;
}

EExit Follow(const std::vector<Input>& inputs, const InfoOptions& options) {
  if (AreSeveral(inputs)) throw ToolError(eUsage, "--follow takes one cache");
  EndOnInterrupts();
  JobsOutput output = {"info", "shown", options.json};
  output.isLastReport = true;
  return RunJobs(
      inputs, 1, [&](const Input& input) { return FollowOn(input, options); }, output);
}

EExit Info(const InfoOptions& options) {
  const std::vector<Input> inputs = options.Inputs();
  if (options.follow) return Follow(inputs, options);
  if (options.tree) {
    for (const Input& input : inputs) PrintTree(input, options.asName);
    return eDone;
  }
  const bool alone = !AreSeveral(inputs);
  return RunJobs(
      inputs, options.jobs, [&](const Input& input) { return InfoOn(input, options, alone); },
      {"info",
       "shown",
       options.json,
       {{"format", 7}, {"points", 8}, {"frames", 6}, {"rate", 6}, {"size", 8}, {"age", 7}},
       false,
       options.shard});
}

}  // namespace

void AddInfo(CLI::App& app, Work* work) {
  const auto options = std::make_shared<InfoOptions>();
  CLI::App* verb = app.add_subcommand(
      "info",
      "Shows what a cache holds. That is its format, the frame rate and where it comes from "
      "(stored, derived from the spacing of the samples, assumed), first and last frame and time, "
      "channels and size. Of several caches, each has a line of a table.");
  verb->footer(
      "Examples:\n  kelcache info shot.pc2\n  kelcache info body.abc --tree\n"
      "  kelcache info /show/caches --recursive\n"
      "  kelcache info sim.xml --follow --to 240");
  verb->add_option("FILE", options->files, "Caches and folders of caches")->required();
  AddManyOptions(verb, options.get());
  AddAsOption(verb, &options->asName);
  verb->add_flag("--tree", options->tree,
                 "Alembic: print the hierarchy of objects with their properties instead")
      ->excludes("--json");
  CLI::Option* follow = verb->add_flag("--follow", options->follow,
                                       "While it is being written: tell how much is there until it "
                                       "is put in place, or its writer "
                                       "has died")
                            ->excludes("--tree");
  verb->add_option("--interval", options->interval, "Seconds from look to look")
      ->type_name("SECONDS")
      ->check(NumberAboveZero())
      ->capture_default_str()
      ->needs(follow);
  verb->add_option("--to", options->lastFrame,
                   "The last scene frame that will be written, for the time left (default: what a "
                   "PC2 file promises)")
      ->type_name("FRAME")
      ->check(AnyNumber())
      ->needs(follow);
  verb->callback([=] { *work = [=] { return Info(*options); }; });
}

}  // namespace kelcache
