#pragma once

#include "backends/nc/names.h"
#include "backends/zuCacheFileInterface.h"

namespace kelsdk::nc {

/// Where lines for a person go; the function may be null.
struct Report {
  zuCacheFileInterface::reportFunction function = nullptr;
  void* context = nullptr;

  void Say(const char* format, ...) const __attribute__((format(printf, 2, 3)));
};

/// Completes and publishes the newest of the partial caches that dead writers left, unless a newer
/// cache stands there. May throw std::bad_alloc.
bool Recover(const CacheName& name, std::uint32_t* blockCount, const Report& report);

}  // namespace kelsdk::nc
