#include "backends/io/folder.h"

#include <dirent.h>
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
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0) return error.SetSystem(errno, "cannot look at it");
  entry->isFile = S_ISREG(status.st_mode);
  entry->isFolder = S_ISDIR(status.st_mode);
  entry->size = static_cast<std::uint64_t>(status.st_size);
  entry->written = status.st_mtime;
  entry->changed = status.st_ctime;
  return true;
}

}  // namespace kelsdk::io
