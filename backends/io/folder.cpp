#include "backends/io/folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>

namespace kelsdk::io {

bool ListFolder(const std::string& folder, std::vector<std::string>* names, Error& error) {
  // The standard library's iterator ends the process when it has no memory.
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), ::closedir);
  if (entries == nullptr) return error.SetSystem(errno, "cannot list the folder");
  while (const dirent* entry = ::readdir(entries.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names->push_back(name);
  }
  return true;
}

bool LookAt(const std::string& path, Entry* entry, Error& error) {
  struct statx status = {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME,
              &status) != 0) {
    return error.SetSystem(errno, "cannot look at it");
  }
  entry->isFile = S_ISREG(status.stx_mode);
  entry->isFolder = S_ISDIR(status.stx_mode);
  entry->size = status.stx_size;
  entry->written = status.stx_mtime.tv_sec;
  entry->changed = status.stx_ctime.tv_sec;
  entry->made = (status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime.tv_sec : 0;
  entry->number = status.stx_ino;
  return true;
}

}  // namespace kelsdk::io
