#include "cache/checks.h"

namespace kelsdk {
namespace {

// Takes over a string that the library allocated; false without memory for the copy.
bool TakeString(char* text, KelString* out) {
  KelString copy(text);
  KelFree(text);
  if (!copy.IsValid()) return false;
  *out = std::move(copy);
  return true;
}

}  // namespace

bool KelCache::AddChannel(const char* channelName, ENCDataType dataType, const char* interpretation,
                          unsigned int& channelIndex, KelStatus* status) {
  ClearStatus(status);
  if (channelName == nullptr || interpretation == nullptr || internalState == nullptr ||
      internalState->ncCache == nullptr) {
    return Fail(status, KelStatus::eInvalidParameter);
  }
  return internalState->ncCache->addChannel(channelName, interpretation,
                                            static_cast<zuCacheData::zuCacheDataType>(dataType),
                                            channelIndex);
}

int KelCache::GetChannelCount(KelStatus* status) {
  ClearStatus(status);
  const EFileFormat format = GetCacheFileFormat();
  if (IsKnown(format) && !IsOpenFor(internalState, format)) {
    Fail(status, kNotOpened);
    return -1;
  }
  switch (format) {
    case eUnknownFormat: break;
    case ePC2Format: return 1;
    case eNCFormat: return static_cast<int>(internalState->ncCache->numChannels());
    case eAlembicFormat: return internalState->alembicCache->GetNumChannels();
  }
  return -1;
}

int KelCache::GetChannelIndex(const char* channelName, KelStatus* status) {
  const EFileFormat format = GetCacheFileFormat();
  if (format == eUnknownFormat) return -1;
  if (IsKnown(format) && !IsOpenFor(internalState, format)) {
    Fail(status, "Cache file not open!");
    return -1;
  }
  ClearStatus(status);
  if (channelName == nullptr || *channelName == 0 || format == ePC2Format) return 0;
  unsigned int index = 0;
  bool found = false;
  if (format == eNCFormat) {
    found = internalState->ncCache->hasChannelByName(channelName, index);
  } else if (format == eAlembicFormat) {
    found = internalState->alembicCache->GetChannelIdFromName(channelName, index);
  }
  return found ? static_cast<int>(index) : -1;
}

bool KelCache::GetChannelName(int channelIndex, KelString& channelName, KelStatus* status) {
  ClearStatus(status);
  if (channelIndex < 0) return Fail(status, KelStatus::eInvalidParameter);
  const EFileFormat format = GetCacheFileFormat();
  if (IsKnown(format) && !IsOpenFor(internalState, format)) return Fail(status, kNotOpened);
  switch (format) {
    case eUnknownFormat: break;
    case ePC2Format: channelName = ""; return true;
    case eNCFormat: {
      char* name = nullptr;
      if (!internalState->ncCache->channelName(LibraryIndex(channelIndex), &name)) {
        KelFree(name);
        return false;
      }
      return TakeString(name, &channelName) || Fail(status, KelStatus::eFailure);
    }
    case eAlembicFormat:
      return internalState->alembicCache->GetChannelName(LibraryIndex(channelIndex), channelName);
  }
  return false;
}

bool KelCache::GetChannelDataType(int channelIndex, ENCDataType& dataType, KelStatus* status) {
  ClearStatus(status);
  if (channelIndex < 0) return Fail(status, KelStatus::eInvalidParameter);
  const EFileFormat format = GetCacheFileFormat();
  switch (format) {
    case eUnknownFormat: break;
    case ePC2Format:
    case eAlembicFormat: return Fail(status, kInvalidFormat);
    case eNCFormat: {
      const auto* cache = RequireNC(format, internalState, status);
      auto type = zuCacheData::eNCUnknownData;
      if (cache == nullptr || !cache->channelDataType(LibraryIndex(channelIndex), type)) {
        return false;
      }
      dataType = static_cast<ENCDataType>(type);
      return true;
    }
  }
  return false;
}

bool KelCache::GetChannelInterpretation(int channelIndex, KelString& interpretation,
                                        KelStatus* status) {
  const auto* cache = RequireNC(GetCacheFileFormat(), internalState, status);
  if (cache == nullptr) return false;
  if (!RequireIndex(channelIndex, *cache, status)) return false;
  char* text = nullptr;
  if (!cache->channelInterpretation(LibraryIndex(channelIndex), &text)) {
    return Fail(status, "Error retrieving channel interpretation data");
  }
  ClearStatus(status);
  return TakeString(text, &interpretation) || Fail(status, KelStatus::eFailure);
}

bool KelCache::GetCacheType(ENCFileCount& fileCount, KelStatus* status) {
  const auto* cache = RequireNC(GetCacheFileFormat(), internalState, status);
  if (cache == nullptr) return false;
  ClearStatus(status);
  fileCount = static_cast<ENCFileCount>(cache->format());
  return true;
}

bool KelCache::EnableMultiChannelFetching(bool enable, KelStatus* status) {
  auto* cache = RequireNC(GetCacheFileFormat(), internalState, status);
  if (cache == nullptr) return false;
  ClearStatus(status);
  cache->setOptimizeMultiChannelRead(enable);
  return true;
}

}  // namespace kelsdk
