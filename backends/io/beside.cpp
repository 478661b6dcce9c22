#include "backends/io/beside.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace kelsdk::io {

std::string NumberedName(const std::string& name, unsigned int attempt) {
  return attempt > 1 ? name + std::to_string(attempt) : name;
}

bool Link(const char* from, const char* to, Error& error) {
  if (::link(from, to) == 0) return true;
  return error.SetSystem(errno, "making a second name for a file");
}

bool IsTaken(const char* path) {
  struct stat entry = {};
  return ::lstat(path, &entry) == 0;
}

bool IsSameFile(const char* path, const char* other) {
  struct stat first = {};
  struct stat second = {};
  // Not through symbolic links: a second name of a link is the link itself.
  return ::lstat(path, &first) == 0 && ::lstat(other, &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace kelsdk::io
