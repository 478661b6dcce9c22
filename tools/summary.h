#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/cache_file.h"
#include "tools/values.h"

namespace kelcache {

inline constexpr int kTicksPerSecond = kelsdk::zuCacheFileInterface::kTicksPerSecond;

/// How far a sample may lie beside its place when it was rounded to a tick; a little more than half
/// of one, so that rounding does not lose a frame that lies right between two.
inline constexpr double kHalfTick = 0.5 + 1e-6;

/// What a cache says of one of its channels; what its format does not know is empty.
struct ChannelSummary {
  int index = 0;
  std::optional<std::string> name;
  std::optional<std::string> type;
  std::optional<std::string> interpretation;
  unsigned int samples = 0;
  std::optional<unsigned int> points;  ///< elements, at the first sample or of the largest
  unsigned int components = 3;         ///< values per element
  std::optional<double> start;         ///< seconds, first sample
  std::optional<double> end;           ///< seconds, last sample
  std::optional<std::string> sampling;
  std::optional<double> interval;  ///< seconds from one sample to the next
  ValueType value = ValueType::eFloat32;
  std::optional<ElementType> elementType;  ///< of an NC channel that holds the values; empty where
                                           ///< that depends on them
  double declaredTicks = 0;                ///< what a copy declares as the interval; 0: nothing
  double maximumError = 0;                 ///< that values were let move by when it was written
};

struct DataFileSummary {
  std::string name;
  std::uint64_t size = 0;
};

/// Of a compact NC cache.
struct CompactSummary {
  unsigned int encoding = 0;
  std::optional<std::uint64_t> arrayBytes;   ///< of all arrays, each counted once
  std::optional<std::uint64_t> storedBytes;  ///< of these on disk
};

struct PC2Summary {
  int version = 1;
  unsigned int points = 0;
  double startFrame = 0;  ///< frame of sample 0
  double sampleRate = 0;  ///< frames from one sample to the next
  unsigned int samples = 0;
  unsigned int wholeSamples = 0;  ///< those that the file really holds
};

/// The channels that a user names, by name or number.
struct ChannelChoice {
  std::vector<std::string> only;  ///< none: all
  std::vector<std::string> drop;  ///< of these

  bool IsAll() const { return only.empty() && drop.empty(); }
};

/// Everything that `info` shows of an open cache.
struct CacheSummary {
  std::string file;
  Format format = kelsdk::KelCache::eUnknownFormat;
  kelsdk::KelFrameRate rate = {0, 0};  ///< exact; not valid: unknown
  std::optional<int> ticksPerFrame;    ///< that an NC cache stores
  bool onTicks = false;                ///< samples lie on whole ticks
  std::string frameRateSource;         ///< "stored", "derived", "assumed" or "none"
  bool complete = true;                ///< the file holds all that its header promises
  unsigned long long problems = 0;     ///< damaged parts of an archive that are left out
  std::uint64_t fileSize = 0;          ///< bytes, data files included
  std::optional<std::uint64_t> promisedSize;
  std::vector<ChannelSummary> channels;
  std::vector<DataFileSummary> dataFiles;
  std::optional<PC2Summary> pc2;
  std::optional<CompactSummary> compact;

  /// Frames per second.
  std::optional<double> frameRate() const {
    return rate.IsValid() ? std::optional(rate.PerSecond()) : std::nullopt;
  }

  /// "24000/1001", of a rate that is no whole number.
  std::optional<std::string> exactRate() const;

  /// Throws eUsage for a cache without a frame rate.
  void ExpectRate() const;

  /// The channel that a user names by its name or number; throws eUsage for one that is not there.
  const ChannelSummary& FindChannel(const std::string& nameOrNumber) const;

  /// Several of them, in the cache's order. Throws eUsage for one that is not there, and where none
  /// is left.
  std::vector<const ChannelSummary*> Choose(const ChannelChoice& choice) const;

  /// "holds 2 whole samples of 5", "data files are missing" ...; "" for a complete cache.
  std::string WhatIsMissing() const;

  /// Seconds of the earliest first and the latest last sample.
  std::optional<double> start() const;
  std::optional<double> end() const;
  /// Seconds from one to the other.
  std::optional<double> span() const;
  /// Seconds that the longest channel's samples last: count x interval.
  std::optional<double> duration() const;
};

/// The frame rate that a PC2 cache, which has none, is shown at.
inline constexpr kelsdk::KelFrameRate kAssumedFrameRate = {24, 1};

/// How an NC cache keeps a frame rate: its ticks per frame, and the rate itself where they are cut.
/// Throws eUsage for a rate whose ticks are below 1 or do not fit.
struct TickRate {
  explicit TickRate(const kelsdk::KelFrameRate& rate);
  int ticksPerFrame = 0;
  kelsdk::KelFrameRate exactRate = {0, 0};
  double exactTicks = 0;
};

}  // namespace kelcache
