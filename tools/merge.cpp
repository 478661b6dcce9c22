#include "tools/merge.h"

#include <cmath>
#include <filesystem>
#include <set>

#include "tools/readable.h"
#include "tools/target.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using Sources = std::vector<std::unique_ptr<Source>>;

Sources Open(const std::vector<std::string>& inputs, const kelsdk::KelFrameRate& rate) {
  Sources sources;
  for (const std::string& in : inputs) {
    const Format format = FormatOf(in, "");
    ExpectReadable(in);
    const bool takesRate = RowOf(format).assumesRate;
    auto source =
        std::make_unique<Source>(in, format, takesRate ? rate : kelsdk::KelFrameRate{0, 0});
    if (!source->summary().rate.IsValid() && rate.IsValid()) {
      source = std::make_unique<Source>(in, format, rate);
    }
    source->summary().ExpectRate();
    sources.push_back(std::move(source));
  }
  return sources;
}

std::string RateText(const CacheSummary& summary) {
  return summary.exactRate().value_or(RoundedText(summary.rate.PerSecond())) +
         (summary.frameRateSource == "assumed" ? " (assumed; --rate says another)" : "");
}

void ExpectOneRate(const Sources& sources) {
  const CacheSummary& first = sources.front()->summary();
  for (const auto& source : sources) {
    const CacheSummary& other = source->summary();
    if (std::uint64_t{other.rate.numerator} * first.rate.denominator ==
        std::uint64_t{first.rate.numerator} * other.rate.denominator) {
      continue;
    }
    throw ToolError(eUsage, other.file + ": has " + RateText(other) + " frames per second and " +
                                first.file + " " + RateText(first) +
                                "; resample brings it to that rate");
  }
}

std::string RangeText(const CacheSummary& summary) {
  const auto first = FirstFrame(summary);
  const auto last = LastFrame(summary);
  if (!first || !last) return "no samples";
  return "frames " + RoundedText(*first) + " to " + RoundedText(*last);
}

void ExpectOneRange(const Sources& sources) {
  const CacheSummary& first = sources.front()->summary();
  const double tolerance = kHalfTick / kTicksPerSecond;
  const auto differ = [&](const std::optional<double>& a, const std::optional<double>& b) {
    return a.has_value() != b.has_value() || (a && std::fabs(*a - *b) > tolerance);
  };
  for (const auto& source : sources) {
    const CacheSummary& other = source->summary();
    if (!differ(first.start(), other.start()) && !differ(first.end(), other.end())) continue;
    throw ToolError(eUsage, other.file + ": holds " + RangeText(other) + " and " + first.file +
                                " " + RangeText(first) +
                                "; --allow-different-ranges merges them all the same");
  }
}

// What a cache is called without its folder and extension.
std::string BaseOf(const Source& source) {
  return std::filesystem::path(source.summary().file).stem().string();
}

std::string NameIn(const Source& source, const ChannelSummary& channel) {
  if (source.summary().pc2) return BaseOf(source);
  const std::string name = channel.name.value_or("");
  return name.empty() ? "channel" + std::to_string(channel.index) : name;
}

// The name of a channel, or another that no channel has yet.
std::string FreeName(const Source& source, const std::string& name, std::set<std::string>* taken,
                     Watch& watch) {
  if (taken->insert(name).second) return name;
  const std::string plain = BaseOf(source) + "_" + name;
  std::string free = plain;
  for (int i = 2; !taken->insert(free).second; ++i) free = plain + std::to_string(i);
  watch.Note(source.summary().file + ": channel " + name + " becomes " + free +
             ", for the name is taken");
  return free;
}

std::vector<CopiedChannel> SideBySide(const Sources& sources, Watch& watch) {
  std::vector<CopiedChannel> channels;
  std::set<std::string> taken;
  for (const auto& source : sources) {
    for (const ChannelSummary& channel : source->summary().channels) {
      const std::string name = FreeName(*source, NameIn(*source, channel), &taken, watch);
      channels.push_back({MakeTrack(*source, channel, {}), name});
    }
  }
  return channels;
}

// The name by which caches tell their channels apart: none where a cache's only one is named after
// it, as conversions name it.
std::string NameAmong(const Source& source, const ChannelSummary& channel) {
  const bool isOnlyOne = source.summary().channels.size() == 1;
  const std::string name = NameIn(source, channel);
  return isOnlyOne && name == BaseOf(source) ? "" : name;
}

// The channels of one cache by these names.
using Catalogue = std::map<std::string, const ChannelSummary*>;

Catalogue CatalogueOf(const Source& source) {
  Catalogue catalogue;
  for (const ChannelSummary& channel : source.summary().channels) {
    if (catalogue.emplace(NameAmong(source, channel), &channel).second) continue;
    throw ToolError(eUsage, source.summary().file + ": has two channels " +
                                NameIn(source, channel) +
                                ", so that which one goes on can not be told");
  }
  return catalogue;
}

// In both directions: a channel that only a later cache has would be lost.
void ExpectAllIn(const Source& one, const Catalogue& ofOne, const Source& other,
                 const Catalogue& ofOther) {
  for (const auto& [name, channel] : ofOne) {
    const auto found = ofOther.find(name);
    const std::string called = NameIn(one, *channel);
    if (found == ofOther.end()) {
      throw ToolError(eUsage, other.summary().file + ": has no channel \"" + called + "\", which " +
                                  one.summary().file + " has; extract takes those that all have");
    }
    if (found->second->type != channel->type) {
      throw ToolError(eUsage, other.summary().file + ": channel " + called + " is " +
                                  found->second->type.value_or("") + " and in " +
                                  one.summary().file + " " + channel->type.value_or(""));
    }
  }
}

std::vector<CopiedChannel> OneAfterTheOther(const Sources& sources, const std::string& out,
                                            EPrefer prefer, Watch& watch) {
  const Source& first = *sources.front();
  std::vector<Catalogue> catalogues;
  for (const auto& source : sources) {
    catalogues.push_back(CatalogueOf(*source));
    ExpectAllIn(first, catalogues.front(), *source, catalogues.back());
    ExpectAllIn(*source, catalogues.back(), first, catalogues.front());
  }
  std::set<std::string> noted;  // the same of all channels is told once
  const auto note = [&](const std::string& line) {
    if (noted.insert(line).second) watch.Note(out + ": " + line);
  };
  std::vector<CopiedChannel> channels;
  for (const ChannelSummary& channel : first.summary().channels) {
    const std::string name = NameAmong(first, channel);
    std::vector<std::unique_ptr<Track>> tracks;
    for (std::size_t i = 0; i < sources.size(); ++i) {
      tracks.push_back(MakeTrack(*sources[i], *catalogues[i].at(name), {}));
    }
    channels.push_back({MakeSequence(std::move(tracks), prefer, note),
                        name.empty() ? NCName(out).baseName : name});
  }
  return channels;
}

}  // namespace

const std::map<std::string, EPrefer> kPrefer = {{"first", EPrefer::eFirst},
                                                {"last", EPrefer::eLast}};

Copied Merge(const std::vector<std::string>& inputs, const std::string& out,
             const MergeOptions& options, Watch& watch) {
  CopyOptions copy;
  copy.target = out;
  copy.targetFormat = FormatOf(out, "");
  if (inputs.size() < 2) throw ToolError(eUsage, out + ": merge takes two caches or more");
  if (!RowOf(copy.targetFormat).hasLayouts) {
    throw ToolError(eUsage, out + ": merge writes NC caches (.xml)");
  }
  if (!options.sequence && options.prefer != EPrefer::eNone) {
    throw ToolError(eUsage, out + ": --prefer goes with --sequence");
  }
  const Target target(out, options.force);
  for (const std::string& in : inputs) target.ExpectOtherThan(in);
  const Sources sources = Open(inputs, options.rate);
  ExpectOneRate(sources);
  if (!options.sequence && !options.allowDifferentRanges) ExpectOneRange(sources);
  static_cast<NCForm&>(copy) = static_cast<const NCForm&>(options);
  copy.KeepThatOf(*sources.front());
  Copied copied;
  for (const auto& source : sources) {
    copied.missing = NoteWhatIsMissing(*source, {}, watch) || copied.missing;
  }
  const auto channels = options.sequence ? OneAfterTheOther(sources, out, options.prefer, watch)
                                         : SideBySide(sources, watch);
  copied.samples = CopyChannelsToNC(channels, sources.front()->summary().rate, copy, watch);
  return copied;
}

}  // namespace kelcache
