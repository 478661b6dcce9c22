#pragma once

#include <string>
#include <vector>

#include "backends/io/error.h"
#include "backends/nc/element_type.h"
#include "backends/nc/format.h"
#include "backends/nc/names.h"
#include "backends/nc/timeline.h"
#include "host/KelTime.h"

namespace kelsdk::nc {

constexpr std::uint64_t kTicksPerSecond = 6000;

/// Ticks of a frame, not cut to whole ones; `exactRate` may be not valid.
inline double ExactTicks(std::int32_t ticksPerFrame, const KelFrameRate& exactRate) {
  return exactRate.IsValid() ? double(kTicksPerSecond) / exactRate.PerSecond() : ticksPerFrame;
}

/// Whether a rate, noted beside the ticks per frame, gives just these when it is cut.
inline bool IsRateOfTicks(const KelFrameRate& rate, std::int32_t ticksPerFrame) {
  return rate.IsValid() &&
         std::int64_t(kTicksPerSecond * rate.denominator / rate.numerator) == ticksPerFrame;
}

struct Channel {
  std::string name;
  std::string interpretation;
  EType type = zuCacheData::eNCUnknownData;
  std::uint32_t interval = 0;  ///< declared, in ticks; 0: the ticks per frame
  bool hasOwnTimes = false;    ///< per-frame layout: `times` and not those of the files
  TimeRuns times;
};

/// What BASE.xml says about a cache.
struct Description {
  Identity identity = {};
  Identity replaced = {};     ///< of the cache that stood here before; zero for none
  std::uint64_t created = 0;  ///< when writing began, nanoseconds since 1970
  bool isCompact = false;     ///< tag "ncc"
  bool isPerFrame = false;
  std::int32_t ticksPerFrame = 0;
  KelFrameRate exactRate = {0,
                            0};  ///< where the ticks per frame are cut; not valid: they are exact
  std::vector<Channel> channels;
  TimeRuns times;  ///< per-frame layout: one file each

  const char* Tag() const { return isCompact ? "ncc" : "ncx"; }
  double ExactTicksPerFrame() const { return ExactTicks(ticksPerFrame, exactRate); }
  const TimeRuns& TimesOf(const Channel& channel) const {
    return channel.hasOwnTimes ? channel.times : times;
  }
  bool HasSample(std::size_t channel, std::int32_t tick) const {
    return Times(TimesOf(channels[channel])).Find(tick).has_value();
  }
};

/// Parses a description. The text may be anything. May throw std::bad_alloc.
bool ParseDescription(const char* text, std::size_t size, Description* description,
                      io::Error& error);

/// Reads and parses BASE.xml. May throw std::bad_alloc.
bool ReadDescription(const std::string& path, Description* description, io::Error& error);

/// May throw std::bad_alloc.
std::string FormatDescription(const Description& description);

/// What addChannel and a description ask of a channel's texts: a name that is not empty, and
/// neither text missing or too long.
bool CheckChannelTexts(const char* name, const char* interpretation, io::Error& error);

}  // namespace kelsdk::nc
