#include "backends/nc/open_cache.h"

namespace kelsdk::nc {

bool IsRegular(const Extent& extent) {
  return extent.count < 2 || extent.interval != 0;
}

std::uint32_t SamplingInterval(const OpenCache& cache, std::uint32_t channel) {
  const Extent extent = cache.ExtentOf(channel);
  if (extent.interval != 0) return extent.interval;
  const std::uint32_t declared = cache.Info().channels[channel].interval;
  if (extent.count < 2 && declared != 0) return declared;
  return static_cast<std::uint32_t>(cache.Info().ticksPerFrame);
}

bool FindSampleAt(OpenCache& cache, std::uint32_t channel, std::int32_t tick, SampleEntry* entry,
                  io::Error& error) {
  Times times;
  if (!cache.TimesOf(channel, &times, error)) return false;
  const auto sample = FindSample(times, tick, SamplingInterval(cache, channel));
  if (!sample) {
    return error.Set(io::Error::eRefused, "channel %u has no sample for tick %d", channel, tick);
  }
  return cache.Locate(channel, *sample, entry, error);
}

}  // namespace kelsdk::nc
