#include "tools/check.h"

#include <algorithm>
#include <string_view>

#include "tools/channel_kind.h"
#include "tools/check_rules.h"
#include "tools/numbers.h"
#include "tools/source.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

// Samples that their archive keeps only once are looked at once.
Poses MeasureSamples(Source& source, const ChannelSummary& channel, const MomentRange& range,
                     Moments& moments, bool points, double limit, Watch& watch) {
  PoseMeter meter(points, limit);
  watch.Begin(range.Count(), source.summary().file);
  for (std::uint64_t i = range.first; i < range.end; ++i) {
    const Moment moment = moments.At(i);
    meter.Add(source.FetchInto(channel, moment, meter.NextRoom()), i, moment.seconds);
    const std::optional<SampleRun> run = source.RunAt(channel, moment);
    if (run && run->last > i) {
      const std::uint64_t last = std::min<std::uint64_t>(run->last, range.end - 1);
      if (last > i) meter.Repeat(last - i, moments.At(last).seconds);
      i = last;
    }
    watch.ThrowIfInterrupted();
    watch.Show(i - range.first + 1);
  }
  watch.End();
  return meter.Take();
}

// Times that are no rule of the format's are each stored in the file.
std::vector<double> StoredTimes(const ChannelSummary& channel, const MomentRange& range,
                                Moments& moments) {
  std::vector<double> times;
  if (channel.sampling != "irregular" && channel.sampling != "acyclic") return times;
  times.reserve(static_cast<std::size_t>(range.Count()));
  for (std::uint64_t i = range.first; i < range.end; ++i) times.push_back(moments.At(i).seconds);
  return times;
}

std::vector<const ChannelSummary*> ChannelsToCheck(const CacheSummary& summary,
                                                   const std::vector<std::string>& wanted) {
  std::vector<const ChannelSummary*> channels;
  channels.reserve(wanted.empty() ? summary.channels.size() : wanted.size());
  for (const std::string& name : wanted) channels.push_back(&summary.FindChannel(name));
  if (!wanted.empty()) return channels;
  for (const ChannelSummary& channel : summary.channels) channels.push_back(&channel);
  return channels;
}

void NoteMissing(const Source& source, const FrameRange& range, Watch& watch, Checked* checked) {
  const CacheSummary& summary = source.summary();
  const bool cutShort = NoteWhatIsMissing(source, range, watch);
  if (!cutShort && (summary.complete || summary.pc2)) return;
  Finding finding;
  finding.kind = EFinding::eMissing;
  finding.text = summary.WhatIsMissing();
  checked->findings.push_back(finding);
}

// A time that is left out is left out of all channels alike.
bool IsKnown(const std::vector<Finding>& findings, const Finding& gap) {
  return std::any_of(findings.begin(), findings.end(), [&](const Finding& known) {
    return known.kind == EFinding::eGap && known.first->seconds == gap.first->seconds &&
           known.last->seconds == gap.last->seconds;
  });
}

// A mesh that has other faces from then on has been made anew.
bool HasNewFaces(Source& source, const ChannelSummary& channel, Moment before, Moment at) {
  constexpr std::string_view kPoints = "/P";
  std::string name = channel.name.value_or("");
  if (!name.ends_with(kPoints)) return false;
  name.resize(name.size() - kPoints.size());
  const std::vector<ChannelSummary>& all = source.summary().channels;
  const auto faces = std::find_if(all.begin(), all.end(), [&](const ChannelSummary& other) {
    return other.name == name + "/.faceIndices";
  });
  if (faces == all.end()) return false;
  before.sample = at.sample = std::nullopt;  // those of the points, not of the faces
  return source.ElementsAt(*faces, before) != source.ElementsAt(*faces, at);
}

}  // namespace

const char* NameOf(EFinding kind) {
  switch (kind) {
    case EFinding::eNotFinite: return "not finite";
    case EFinding::eJump: return "jump";
    case EFinding::eJumpBack: return "jump back";
    case EFinding::eFrozen: return "frozen";
    case EFinding::eCollapsed: return "collapsed";
    case EFinding::eCountChange: return "count change";
    case EFinding::eGap: return "gap";
    case EFinding::eMissing: return "missing";
  }
  return "";
}

std::string Finding::Line(const std::string& channelName) const {
  std::string line = channelName.empty() ? "" : "channel " + channelName + ", ";
  if (first) {
    line += first->seconds == last->seconds ? MomentText(*first)
            : first->frame
                ? "frames " + RoundedText(*first->frame) + " to " + RoundedText(*last->frame)
                : RoundedText(first->seconds) + " to " + RoundedText(last->seconds) + " s";
    if (first->frame && first->seconds == last->seconds) {
      line += " (" + RoundedText(first->seconds) + " s)";
    }
    if (point) line += ", point " + std::to_string(*point);
    line += ": ";
  }
  return line + text;
}

void CheckChannel(Source& source, const ChannelSummary& channel, const CheckOptions& options,
                  Watch& watch, Checked* checked) {
  const CacheSummary& summary = source.summary();
  Moments moments = source.MomentsOf(channel);
  const bool hasFrames = summary.rate.IsValid();
  const MomentRange range = hasFrames || !options.range.IsOpen() ? moments.In(options.range)
                                                                 : MomentRange{0, moments.count()};
  const auto positions = PositionChannels(summary);
  const bool points = std::find(positions.begin(), positions.end(), &channel) != positions.end();
  checked->samples = std::max(checked->samples, range.Count());
  if (points && !checked->points) checked->points = channel.points;
  if (summary.pc2 && summary.pc2->points == 0) return;
  const Poses poses =
      MeasureSamples(source, channel, range, moments, points, options.maxMove, watch);
  std::vector<Finding> found =
      ApplyRules(poses, StoredTimes(channel, range, moments), points, options.maxMove, range.first);
  for (Finding& finding : found) {
    finding.channel = channel.index;
    finding.first = moments.At(finding.firstSample);
    finding.last = moments.At(finding.lastSample);
    if (finding.like) finding.text += ' ' + MomentText(moments.At(*finding.like));
    if (finding.kind == EFinding::eGap && IsKnown(checked->findings, finding)) continue;
    if (finding.kind == EFinding::eCountChange &&
        HasNewFaces(source, channel, moments.At(finding.firstSample - 1), *finding.first)) {
      continue;
    }
    checked->findings.push_back(std::move(finding));
  }
}

Checked Check(const std::string& file, const CheckOptions& options, Watch& watch) {
  Source source(file, FormatOf(file, options.asName));
  const CacheSummary& summary = source.summary();
  Checked checked;
  checked.format = RowOf(summary.format).name;
  for (const ChannelSummary& channel : summary.channels) {
    const bool isOneOfSeveral = summary.channels.size() > 1;
    checked.channelNames.push_back(
        isOneOfSeveral ? channel.name.value_or(std::to_string(channel.index)) : "");
  }
  NoteMissing(source, options.range, watch, &checked);
  for (const ChannelSummary* channel : ChannelsToCheck(summary, options.channels)) {
    CheckChannel(source, *channel, options, watch, &checked);
  }
  return checked;
}

}  // namespace kelcache
