#include "cache/checks.h"
#include "cache/ticks.h"

namespace kelsdk {

bool KelCache::GetAnimationRange(int channelIndex, KelTime& startTime, KelTime& endTime,
                                 KelStatus* status) {
  const EFileFormat format = GetCacheFileFormat();
  if (format == eNCFormat) {
    const auto* cache = RequireNC(format, internalState, status);
    if (cache == nullptr) return false;
    if (channelIndex < 0) return Fail(status, KelStatus::eInvalidParameter);
    ClearStatus(status);
    int start = 0;
    int end = 0;
    cache->getChannelStartTime(LibraryIndex(channelIndex), start);
    startTime = TimeOfTicks(start);
    cache->getChannelEndTime(LibraryIndex(channelIndex), end);
    endTime = TimeOfTicks(end);
    return true;
  }
  if (format == eAlembicFormat) {
    auto* cache = RequireAlembic(internalState, status);
    if (cache == nullptr) return false;
    if (channelIndex < 0) return Fail(status, KelStatus::eInvalidParameter);
    ClearStatus(status);
    cache->GetChannelStartEnd(LibraryIndex(channelIndex), startTime, endTime);
    return true;
  }
  return Fail(status, kInvalidFormat);
}

double KelCache::GetSamplingFrameRate(KelStatus* status) {
  ClearStatus(status);
  const EFileFormat format = GetCacheFileFormat();
  switch (format) {
    case eUnknownFormat: break;
    case ePC2Format: {
      const auto* cache = RequirePC2(format, internalState, eOpenForRead, status);
      return cache != nullptr ? double(cache->sampleRate) : 0.0;
    }
    case eNCFormat: {
      const auto* cache = RequireNC(format, internalState, status);
      const int ticks = cache != nullptr ? cache->getTicksPerFrame() : 0;
      return ticks != 0 ? kTicksPerSecond / ticks : 0.0;
    }
    case eAlembicFormat: return 0.0;
  }
  Fail(status, kInvalidFormat);
  return 0.0;
}

KelTime KelCache::GetCacheTimePerFrame(KelStatus* status) {
  const double rate = GetSamplingFrameRate(nullptr);
  ClearStatus(status);
  // Beyond the 64-bit range, where no cast is defined, a frame has no length worth a unit; NaN is
  // no rate.
  constexpr double kHighest = 9.2e18;
  if (!(rate > -kHighest && rate < kHighest)) return KelTime(0);
  return KelTime(KelTime::kUnitsPerSecond) / KelTime(static_cast<long long>(rate));
}

bool KelCache::GetDataTime(int channelIndex, unsigned int dataIndex, KelTime& time,
                           KelStatus* status) {
  auto* cache = RequireNC(GetCacheFileFormat(), internalState, status);
  if (cache == nullptr) return false;
  int ticks = 0;
  const bool found = cache->getDataTime(LibraryIndex(channelIndex), dataIndex, ticks);
  if (found) time = TimeOfTicks(ticks);
  ClearStatus(status);
  return found || Fail(status, KelStatus::eFailure);
}

unsigned int KelCache::GetDataCount(int channelIndex, KelStatus* status) {
  auto* cache = RequireNC(GetCacheFileFormat(), internalState, status);
  if (cache == nullptr) return 0;
  const unsigned int count = cache->getDataCount(LibraryIndex(channelIndex));
  ClearStatus(status);
  if (count == 0) Fail(status, KelStatus::eFailure);
  return count;
}

bool KelCache::GetNextTimeWithData(KelTime currentTime, KelTime& nextTime, int channelIndex,
                                   KelStatus* status) {
  auto* cache = RequireNC(GetCacheFileFormat(), internalState, status);
  if (cache == nullptr) return false;
  int ticks = 0;
  if (!TicksOf(currentTime, &ticks, status)) return false;
  int nextTicks = 0;
  const bool found = channelIndex == -1
                         ? cache->getNextTimeWithData(ticks, nextTicks)
                         : cache->getNextTimeWithData(LibraryIndex(channelIndex), ticks, nextTicks);
  if (found) nextTime = TimeOfTicks(nextTicks);
  ClearStatus(status);
  return found || Fail(status, KelStatus::eFailure);
}

bool KelCache::GetChannelPointCount(int channelIndex, KelTime time, unsigned int& pointCount,
                                    KelStatus* status) {
  auto* cache = RequireNC(GetCacheFileFormat(), internalState, status);
  if (cache == nullptr) return false;
  if (!RequireIndex(channelIndex, *cache, status)) return false;
  KelTime start;
  KelTime end;
  if (!GetAnimationRange(channelIndex, start, end, nullptr)) return false;
  if (time < start || time > end) return Fail(status, "Specified time is out of range");
  int ticks = 0;
  if (!TicksOf(time, &ticks, status)) return false;
  if (!cache->getArrayLengthAtTime(LibraryIndex(channelIndex), ticks, pointCount)) {
    return Fail(status, "Error retrieving channel point count");
  }
  ClearStatus(status);
  return true;
}

bool KelCache::GetChannelSampleCount(int channelIndex, unsigned int& sampleCount,
                                     KelStatus* status) {
  const EFileFormat format = GetCacheFileFormat();
  if (format == eNCFormat) {
    auto* cache = RequireNC(format, internalState, status);
    if (cache == nullptr) return false;
    if (!RequireIndex(channelIndex, *cache, status)) return false;
    ClearStatus(status);
    sampleCount = cache->getDataCount(LibraryIndex(channelIndex));
    return true;
  }
  if (format == eAlembicFormat) {
    auto* cache = RequireAlembic(internalState, status);
    if (cache == nullptr) return false;
    if (!RequireIndex(channelIndex, *cache, status)) return false;
    ClearStatus(status);
    sampleCount = cache->GetChannelNumSamples(LibraryIndex(channelIndex));
    return true;
  }
  return Fail(status, kInvalidFormat);
}

bool KelCache::GetChannelSamplingType(int channelIndex, ENCSamplingType& samplingType,
                                      KelStatus* status) {
  const auto* cache = RequireNC(GetCacheFileFormat(), internalState, status);
  if (cache == nullptr) return false;
  if (!RequireIndex(channelIndex, *cache, status)) return false;
  ClearStatus(status);
  samplingType = cache->isChannelSamplingRegular(LibraryIndex(channelIndex)) ? eNCSamplingRegular
                                                                             : eNCSamplingIrregular;
  return true;
}

bool KelCache::GetChannelSamplingRate(int channelIndex, KelTime& samplingRate, KelStatus* status) {
  const auto* cache = RequireNC(GetCacheFileFormat(), internalState, status);
  if (cache == nullptr) return false;
  if (!RequireIndex(channelIndex, *cache, status)) return false;
  if (!cache->isChannelSamplingRegular(LibraryIndex(channelIndex))) {
    return Fail(status, "Sampling type for this channel is irregular");
  }
  int ticks = 0;
  if (!cache->channelSamplingRate(LibraryIndex(channelIndex), ticks)) {
    return Fail(status, "Error retrieving channel sampling rate");
  }
  ClearStatus(status);
  samplingRate = TimeOfTicks(ticks);  // equal to ticks x one second / 6000, without its overflow
  return true;
}

}  // namespace kelsdk
