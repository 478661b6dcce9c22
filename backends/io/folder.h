#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backends/io/error.h"

namespace kelsdk::io {

/// Every name in a folder; false when it cannot be read. May throw std::bad_alloc.
bool ListFolder(const std::string& folder, std::vector<std::string>* names, Error& error);

/// What bears a name; symbolic links are not followed. Times are seconds since 1970.
struct Entry {
  bool isFile = false;  ///< a regular one
  bool isFolder = false;
  std::uint64_t size = 0;
  std::int64_t written = 0;
  std::int64_t changed = 0;  ///< its names, permissions or content
  std::int64_t made = 0;     ///< 0 where the file system does not tell
  std::uint64_t number = 0;  ///< tells it from all others of its file system
};

bool LookAt(const std::string& path, Entry* entry, Error& error);

}  // namespace kelsdk::io
