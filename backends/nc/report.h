#pragma once

#include "backends/zuCacheFileInterface.h"

namespace kelsdk::nc {

/// Where lines for a person go; the function may be null.
struct Report {
  zuCacheFileInterface::reportFunction function = nullptr;
  void* context = nullptr;

  void Say(const char* format, ...) const __attribute__((format(printf, 2, 3)));
};

}  // namespace kelsdk::nc
