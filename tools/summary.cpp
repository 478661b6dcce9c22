#include "tools/summary.h"

#include <charconv>
#include <climits>

#include "tools/numbers.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

std::size_t IndexOf(const ChannelSummary& channel) {
  return static_cast<std::size_t>(channel.index);
}

// "; it has P, v, id", as far as a line goes; "" for nameless channels.
std::string NamesOf(const std::vector<ChannelSummary>& channels) {
  constexpr std::size_t kLongest = 200;
  std::string names;
  for (const ChannelSummary& channel : channels) {
    if (!channel.name) continue;
    names += names.empty() ? "; it has " : ", ";
    if (names.size() > kLongest) return names + "... (info lists them)";
    names += *channel.name;
  }
  return names;
}

}  // namespace

std::optional<std::string> CacheSummary::exactRate() const {
  if (!rate.IsValid() || rate.numerator % rate.denominator == 0) return {};
  return std::to_string(rate.numerator) + "/" + std::to_string(rate.denominator);
}

void CacheSummary::ExpectRate() const {
  if (!rate.IsValid()) throw ToolError(eUsage, file + ": has no frame rate; give --rate");
}

const ChannelSummary& CacheSummary::FindChannel(const std::string& nameOrNumber) const {
  for (const ChannelSummary& channel : channels) {
    if (channel.name == nameOrNumber) return channel;
  }
  std::size_t number = 0;
  const char* const end = nameOrNumber.data() + nameOrNumber.size();
  const auto parsed = std::from_chars(nameOrNumber.data(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end) {
    throw ToolError(eUsage, file + ": no channel \"" + nameOrNumber + '"' + NamesOf(channels));
  }
  if (number < channels.size()) return channels[number];
  throw ToolError(eUsage, file + ": no channel " + nameOrNumber + ", it has " +
                              std::to_string(channels.size()));
}

std::vector<const ChannelSummary*> CacheSummary::Choose(const ChannelChoice& choice) const {
  std::vector<bool> isTaken(channels.size(), choice.only.empty());
  for (const std::string& word : choice.only) isTaken[IndexOf(FindChannel(word))] = true;
  for (const std::string& word : choice.drop) isTaken[IndexOf(FindChannel(word))] = false;
  std::vector<const ChannelSummary*> chosen;
  for (const ChannelSummary& channel : channels) {
    if (isTaken[IndexOf(channel)]) chosen.push_back(&channel);
  }
  if (chosen.empty() && !choice.IsAll()) throw ToolError(eUsage, file + ": no channel is left");
  return chosen;
}

std::string CacheSummary::WhatIsMissing() const {
  if (complete) return "";
  if (pc2) {
    return "holds " + std::to_string(pc2->wholeSamples) + " whole samples of " +
           std::to_string(pc2->samples) + " claimed";
  }
  if (problems == 0) return "data files are missing";
  return std::to_string(problems) + (problems == 1 ? " part is" : " parts are") +
         " damaged and left out; verify tells which";
}

std::optional<double> CacheSummary::start() const {
  std::optional<double> earliest;
  for (const ChannelSummary& channel : channels) {
    if (channel.start && (!earliest || *channel.start < *earliest)) earliest = channel.start;
  }
  return earliest;
}

std::optional<double> CacheSummary::end() const {
  std::optional<double> latest;
  for (const ChannelSummary& channel : channels) {
    if (channel.end && (!latest || *channel.end > *latest)) latest = channel.end;
  }
  return latest;
}

std::optional<double> CacheSummary::span() const {
  if (!start() || !end()) return {};
  return *end() - *start();
}

std::optional<double> CacheSummary::duration() const {
  std::optional<double> longest;
  for (const ChannelSummary& channel : channels) {
    if (!channel.interval) continue;
    const double duration = channel.samples * *channel.interval;
    if (!longest || duration > *longest) longest = duration;
  }
  return longest;
}

TickRate::TickRate(const kelsdk::KelFrameRate& rate) {
  const std::uint64_t ticks = std::uint64_t{kTicksPerSecond} * rate.denominator;
  if (!rate.IsValid() || ticks / rate.numerator < 1 || ticks / rate.numerator > INT_MAX) {
    throw ToolError(eUsage, "Invalid sampling rate: " + RoundedText(rate.PerSecond()) +
                                " frames per second are not 1 to 2147483647 ticks a frame");
  }
  ticksPerFrame = static_cast<int>(ticks / rate.numerator);
  exactTicks = double(ticks) / rate.numerator;
  if (ticks % rate.numerator != 0) exactRate = rate;
}

}  // namespace kelcache
