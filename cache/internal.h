#pragma once

#include <cstdio>
#include <utility>

#include "backends/AlembicInterface.h"
#include "backends/zuCacheFileInterface.h"
#include "backends/zuPointCache2IO.h"
#include "cache/KelCache.h"

namespace kelsdk {

/// The private record of a KelCache. A format is open exactly while its handle is non-null.
struct KelCache_internal {
  KelCache_internal() = default;
  KelCache_internal(const KelCache_internal&) = delete;
  KelCache_internal& operator=(const KelCache_internal&) = delete;
  ~KelCache_internal();

  KelCache::EOpenFlag openFlag = KelCache::eOpenForRead;  ///< of the file opened last
  float* pc2Buffer = nullptr;                             ///< owned scratch, 3 floats per point
  unsigned int pc2BufferCount = 0;                        ///< floats at pc2Buffer
  bool beginWriteAtCalled = false;                        ///< a time block is open
  zuCacheFileInterface* ncCache = nullptr;                // the three back-end objects, owned
  zuPointCache2IO* pc2Cache = nullptr;
  AlembicInterface* alembicCache = nullptr;
  char refusal[256] = "";  ///< words of the back-end object that refused last and has ended
};

inline const char* WordsOf(const zuCacheFileInterface& cache) {
  return cache.errorString();
}
inline const char* WordsOf(const zuPointCache2IO& cache) {
  return cache.errorString();
}
inline const char* WordsOf(const AlembicInterface& cache) {
  return cache.GetErrorString();
}

/// Keeps a back-end's words beyond its end.
template <typename BackEnd>
void KeepWords(KelCache_internal* state, const BackEnd* cache) {
  if (cache != nullptr) std::snprintf(state->refusal, sizeof state->refusal, "%s", WordsOf(*cache));
}

/// Makes a back-end object in memory from KelMalloc; null when there is none.
template <typename BackEnd, typename... Arguments>
BackEnd* NewBackEnd(Arguments&&... arguments) {
  void* block = KelMalloc(static_cast<unsigned int>(sizeof(BackEnd)));
  return block != nullptr ? ::new (block) BackEnd(std::forward<Arguments>(arguments)...) : nullptr;
}

/// Ends a back-end object, if there is one, and sets its handle to null.
template <typename BackEnd>
void DestroyBackEnd(BackEnd*& handle) {
  if (handle != nullptr) {
    handle->~BackEnd();
    KelFree(handle);
  }
  handle = nullptr;
}

}  // namespace kelsdk
