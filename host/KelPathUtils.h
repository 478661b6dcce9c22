#pragma once

#include "host/KelString.h"

namespace kelsdk {

/// Rules for file paths. "/" and the backslash both separate components.
class KelPathUtils {
 public:
  /// The folder part without a trailing separator, so that it may be followed by "/": "/a/b.c"
  /// gives "/a", a bare file name gives ".", and "/name" gives "".
  static KelString GetFolderName(const char* path) noexcept;

  /// The last component; without its extension (the last dot and what follows it, unless the dot
  /// is the first character) when `withExtension` is false.
  static KelString GetFileName(const char* path, bool withExtension) noexcept;

  /// The absolute form of a path with "/" as its only separator, relative to the current directory,
  /// with "." and ".." worked out in the text (symbolic links are not looked at). An empty path
  /// names nothing and stays empty.
  static KelString Resolve(const char* path) noexcept;
};

}  // namespace kelsdk
