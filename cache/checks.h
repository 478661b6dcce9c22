#pragma once

#include "cache/internal.h"

namespace kelsdk {

inline constexpr char kInvalidFormat[] = "Invalid/unspecified cache format";
inline constexpr char kNotOpened[] = "Cache file not opened";
inline constexpr char kInvalidOpenFlag[] = "Invalid open flag";
inline constexpr char kInvalidSamplingRate[] = "Invalid sampling rate";

inline void ClearStatus(KelStatus* status) {
  if (status != nullptr) status->Clear();
}

/// Sets a bare code; gives false, so that an operation can `return Fail(...)`.
inline bool Fail(KelStatus* status, KelStatus::EStatusCode code) {
  if (status != nullptr) status->SetCode(code);
  return false;
}

/// Sets code 1 with a message.
inline bool Fail(KelStatus* status, const char* message) {
  if (status != nullptr) status->SetCode(KelStatus::eFailure, "%s", message);
  return false;
}

inline bool IsKnown(KelCache::EFileFormat format) {
  return format == KelCache::ePC2Format || format == KelCache::eNCFormat ||
         format == KelCache::eAlembicFormat;
}

/// Whether a file of the format is open: the format's handle is non-null.
inline bool IsOpenFor(const KelCache_internal* state, KelCache::EFileFormat format) {
  if (state == nullptr) return false;
  switch (format) {
    case KelCache::ePC2Format: return state->pc2Cache != nullptr;
    case KelCache::eNCFormat: return state->ncCache != nullptr;
    case KelCache::eAlembicFormat: return state->alembicCache != nullptr;
    case KelCache::eUnknownFormat: break;
  }
  return false;
}

/// A channel index as the back-ends take it: the same bits.
inline unsigned int LibraryIndex(int channelIndex) {
  return static_cast<unsigned int>(channelIndex);
}

/// The checks that the operations of one format share, in their order: format, handle and, where an
/// operation needs one direction, the open flag. Each gives the handle, or null with code 1 and the
/// message of the check that failed.
inline zuCacheFileInterface* RequireNC(KelCache::EFileFormat format, const KelCache_internal* state,
                                       KelStatus* status) {
  if (format != KelCache::eNCFormat) {
    Fail(status, kInvalidFormat);
    return nullptr;
  }
  if (state == nullptr || state->ncCache == nullptr) {
    Fail(status, kNotOpened);
    return nullptr;
  }
  return state->ncCache;
}

inline zuCacheFileInterface* RequireNCForWrite(KelCache::EFileFormat format,
                                               const KelCache_internal* state, KelStatus* status) {
  zuCacheFileInterface* cache = RequireNC(format, state, status);
  if (cache != nullptr && state->openFlag != KelCache::eOpenForWrite) {
    Fail(status, kInvalidOpenFlag);
    return nullptr;
  }
  return cache;
}

inline zuPointCache2IO* RequirePC2(KelCache::EFileFormat format, const KelCache_internal* state,
                                   KelCache::EOpenFlag flag, KelStatus* status) {
  if (format != KelCache::ePC2Format) {
    Fail(status, kInvalidFormat);
    return nullptr;
  }
  if (state == nullptr || state->pc2Cache == nullptr) {
    Fail(status, kNotOpened);
    return nullptr;
  }
  if (state->openFlag != flag) {
    Fail(status, kInvalidOpenFlag);
    return nullptr;
  }
  return state->pc2Cache;
}

inline AlembicInterface* RequireAlembic(const KelCache_internal* state, KelStatus* status) {
  if (state == nullptr || state->alembicCache == nullptr) {
    Fail(status, kNotOpened);
    return nullptr;
  }
  return state->alembicCache;
}

inline int ChannelCountOf(const zuCacheFileInterface& cache) {
  return static_cast<int>(cache.numChannels());
}
inline int ChannelCountOf(const AlembicInterface& cache) {
  return cache.GetNumChannels();
}

/// True, else code 4, when the back-end has a channel of that index. It is not asked about a
/// negative one.
template <typename BackEnd>
bool RequireIndex(int channelIndex, const BackEnd& cache, KelStatus* status) {
  return (channelIndex >= 0 && channelIndex < ChannelCountOf(cache)) ||
         Fail(status, KelStatus::eIndexOutOfRange);
}

/// a x b x c when it fits 32 bits: KelMalloc takes no more.
inline bool SizeOf(unsigned int a, unsigned int b, unsigned int c, unsigned int* product) {
  unsigned int size = 0;
  if (__builtin_mul_overflow(a, b, &size) || __builtin_mul_overflow(size, c, &size)) return false;
  *product = size;
  return true;
}

}  // namespace kelsdk
