#include "host/KelFileUtils.h"

#include <sys/stat.h>

namespace kelsdk {

bool KelFileUtils::Exist(const char* path) noexcept {
  struct stat entry = {};
  return path != nullptr && ::stat(path, &entry) == 0 && !S_ISDIR(entry.st_mode);
}

}  // namespace kelsdk
