#pragma once

#include <string>

#include "backends/io/error.h"

namespace kelsdk::io {

/// Where a file that is to replace `path` goes, and with which permissions.
struct ReplaceTarget {
  std::string path;          ///< symbolic links followed, so that a link stays a link
  unsigned int mode = 0666;  ///< of the file that is there, or the default before the mask
  bool exists = false;
};

/// Looks at what stands at `path`. Refuses directories, special files and a file without write
/// permission. May throw std::bad_alloc.
bool FindReplaceTarget(const char* path, ReplaceTarget* target, Error& error);

/// Puts `from` in the place of `to` at once; durable after SyncFolderOf.
bool Rename(const char* from, const char* to, Error& error);

/// Makes the names in the folder of `path` durable. May throw std::bad_alloc.
bool SyncFolderOf(const char* path, Error& error);

/// Makes everything durable that was written to the file system that holds a folder: for many files
/// one call in place of one each.
bool SyncFileSystemOf(const char* folder, Error& error);

bool Remove(const char* path, Error& error);

/// The folder of a path with a final "/"; "./" for a bare name.
std::string FolderOf(const std::string& path);

}  // namespace kelsdk::io
