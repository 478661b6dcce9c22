#pragma once

#include "host/KelApi.h"
#include "host/KelString.h"

namespace kelsdk {

/// Rules for file paths. "/" and the backslash both separate components.
class KEL_API KelPathUtils {
 public:
  /// The folder part without trailing separators, so that it may be followed by "/": "/a/b.c" and
  /// "/a//b.c" give "/a", a bare file name gives ".", and "/name" gives "".
  static KelString GetFolderName(const char* path) noexcept;

  /// The last component; without its extension (the last dot and what follows it, unless the dot
  /// is the first character) when `withExtension` is false.
  static KelString GetFileName(const char* path, bool withExtension) noexcept;

  /// The absolute form of a path with "/" as its only separator, relative to the current directory,
  /// with "." and ".." worked out in the text (symbolic links are not looked at). Empty for an
  /// empty path, which names nothing, and for a relative one when there is no current directory.
  static KelString Resolve(const char* path) noexcept;
};

}  // namespace kelsdk
