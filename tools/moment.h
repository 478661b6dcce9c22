#pragma once

#include <optional>
#include <string>

#include "tools/summary.h"

namespace kelcache {

/// Seconds by which two times may differ that mean the same sample of an archive.
inline constexpr double kSameClock = 1e-5;

/// A moment of a channel, as a person and as the cache name it.
struct Moment {
  std::optional<double> frame;         ///< scene frame; empty when the cache has no frame rate
  std::optional<unsigned int> sample;  ///< sample number, where moments are samples
  double seconds = 0;
  double ticks = 0;      ///< 6000 to the second, not rounded
  kelsdk::KelTime time;  ///< what fetches it
};

/// The scene frame of a time in ticks at the summary's rate, which is valid. A sample on a whole
/// tick, to which it was rounded, has the simplest frame that it can stand for.
double FrameAt(const CacheSummary& summary, double ticks);

/// The scene frames of a cache's first and last sample; empty without samples or a frame rate.
std::optional<double> FirstFrame(const CacheSummary& summary);
std::optional<double> LastFrame(const CacheSummary& summary);

/// The moment of a time in ticks.
Moment MomentAt(const CacheSummary& summary, double ticks, std::optional<unsigned int> sample);

/// "frame 12.5", or "0.5 s" where there are no frames.
std::string MomentText(const Moment& moment);

/// Throws eFailed for a moment of a channel that could not be read.
[[noreturn]] void FailAt(const CacheSummary& summary, const ChannelSummary& channel,
                         const Moment& moment, const std::string& why);

}  // namespace kelcache
