#pragma once

#include <span>
#include <string>
#include <vector>

#include "backends/io/error.h"
#include "backends/nc/element_type.h"
#include "backends/nc/format.h"
#include "backends/nc/layout.h"
#include "backends/nc/timeline.h"

namespace kelsdk::nc {

struct Channel {
  std::string name;
  std::string interpretation;
  EType type = zuCacheData::eNCUnknownData;
  std::uint32_t interval = 0;  ///< declared, in ticks; 0: the ticks per frame
  double maximumError = 0;     ///< that values may have been moved by; 0: none has
  bool hasOwnTimes = false;    ///< per-frame layout: `times` and not those of the files
  TimeRuns times;
};

/// What BASE.xml says about a cache.
struct Description : FileLayout {
  Identity identity = {};
  Identity replaced = {};     ///< of the cache that stood here before; zero for none
  std::uint64_t created = 0;  ///< when writing began, nanoseconds since 1970
  std::vector<Channel> channels;
  TimeRuns times;  ///< per-frame layout: one file each

  const TimeRuns& TimesOf(const Channel& channel) const {
    return channel.hasOwnTimes ? channel.times : times;
  }
  bool HasSample(std::size_t channel, std::int32_t tick) const {
    return Times(TimesOf(channels[channel])).Find(tick).has_value();
  }
};

/// Notes the times of the files, and of each channel's samples, which are among them.
void DescribeTimes(const Times& files, std::span<const Times> channels, Description* description);

/// Parses a description. The text may be anything. May throw std::bad_alloc.
bool ParseDescription(const char* text, std::size_t size, Description* description,
                      io::Error& error);

/// Reads and parses BASE.xml. May throw std::bad_alloc.
bool ReadDescription(const std::string& path, Description* description, io::Error& error);

/// May throw std::bad_alloc.
std::string FormatDescription(const Description& description);

/// Refuses a maximum error that a channel of this type in this layout cannot have.
bool CheckMaximumError(const FileLayout& layout, EType type, double maximumError, io::Error& error);

/// What addChannel and a description ask of a channel's texts: a name that is not empty, and
/// neither text missing or too long.
bool CheckChannelTexts(const char* name, const char* interpretation, io::Error& error);

}  // namespace kelsdk::nc
