#pragma once

#include "host/KelApi.h"

namespace kelsdk {

class KEL_API KelFileUtils {
 public:
  /// True when something other than a directory exists at the path, symbolic links followed.
  static bool Exist(const char* path) noexcept;
};

}  // namespace kelsdk
