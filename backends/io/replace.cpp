#include "backends/io/replace.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace kelsdk::io {
namespace {

constexpr int kMostLinks = 40;  // as many as the system itself follows
constexpr unsigned int kPermissions = 07777;

// Follows symbolic links at the end of the path, also to a file that does not exist yet.
bool FollowLinks(std::string* path, Error& error) {
  for (int links = 0; links < kMostLinks; ++links) {
    char text[PATH_MAX];
    const ssize_t length = ::readlink(path->c_str(), text, sizeof text);
    if (length < 0) return true;  // no link, or nothing there
    const std::string next(text, static_cast<size_t>(length));
    *path = next.starts_with('/') ? next : FolderOf(*path) + next;
  }
  return error.SetSystem(ELOOP, "following symbolic links");
}

}  // namespace

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

bool FindReplaceTarget(const char* path, ReplaceTarget* target, Error& error) {
  target->path = path;
  if (target->path.empty()) return error.Set(Error::eRefused, "the file name is empty");
  if (!FollowLinks(&target->path, error)) return false;
  struct stat entry = {};
  target->exists = ::stat(target->path.c_str(), &entry) == 0;
  if (!target->exists) {
    if (errno != ENOENT) return error.SetSystem(errno, "cannot look at the target");
    if (target->path.ends_with('/')) return error.Set(Error::eRefused, "the name is a folder's");
    return true;
  }
  if (S_ISDIR(entry.st_mode)) return error.Set(Error::eNotAFile, "is a directory");
  if (!S_ISREG(entry.st_mode)) return error.Set(Error::eNotAFile, "is not a regular file");
  if (::access(target->path.c_str(), W_OK) != 0) {
    return error.SetSystem(errno, "the existing file may not be written");
  }
  target->mode = entry.st_mode & kPermissions;
  return true;
}

bool Rename(const char* from, const char* to, Error& error) {
  if (std::rename(from, to) == 0) return true;
  return error.SetSystem(errno, "renaming into place");
}

bool SyncFolderOf(const char* path, Error& error) {
  const int folder = ::open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return error.SetSystem(errno, "opening the folder");
  const bool synced = ::fsync(folder) == 0;
  const int reason = errno;
  ::close(folder);
  // Some network file systems know no sync of folders.
  if (synced || reason == EINVAL || reason == ENOTSUP) return true;
  return error.SetSystem(reason, "making the folder durable");
}

bool SyncFileSystemOf(const char* folder, Error& error) {
  const int descriptor = ::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return error.SetSystem(errno, "opening the folder");
  const bool synced = ::syncfs(descriptor) == 0;
  const int reason = errno;
  ::close(descriptor);
  return synced || error.SetSystem(reason, "making the file system durable");
}

bool Remove(const char* path, Error& error) {
  if (::unlink(path) == 0) return true;
  return error.SetSystem(errno, "removing");
}

}  // namespace kelsdk::io
