#include "backends/io/leftover.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "backends/io/beside.h"
#include "backends/io/guard.h"

namespace kelsdk::io {
namespace {

std::string WithSlash(const char* folder) {
  std::string path = folder != nullptr && *folder != 0 ? folder : ".";
  if (!path.ends_with('/')) path += '/';
  return path;
}

}  // namespace

bool IsSettled(std::int64_t since) {
  constexpr std::int64_t kSettled = 600;  // seconds; clocks of file servers differ by some
  return since <= std::time(nullptr) - kSettled;
}

bool ParseOlderName(const std::string& name, std::size_t* length, std::size_t* ownLength) {
  *length = name.rfind(kOlderSuffix);
  if (*length == std::string::npos || *length == 0) return false;
  const std::size_t digits = *length + std::strlen(kOlderSuffix);
  *ownLength = std::min(name.find_first_not_of("0123456789", digits), name.size());
  const std::string number = name.substr(digits, *ownLength - digits);
  return number.empty() || (number.size() <= 4 && number[0] != '0' && number != "1");
}

bool LockForRemoval(const char* path, OutputFile* file, Error& error) {
  if (!file->OpenExisting(path, error)) return false;
  if (!file->IsLocked()) {
    return error.Set(Error::eUnsupported,
                     "the file system has no locks, so whether its writer lives cannot be told");
  }
  return file->IsAt(path) || error.Set(Error::eNotFound, "was put in place or removed meanwhile");
}

bool ExpectRemovable(const Leftover& leftover, bool force, Error& error) {
  const bool may = leftover.state == CacheLeftover::eUseless ||
                   (force && leftover.state == CacheLeftover::eOfUse);
  return may || error.Set(Error::eRefused, "%s", leftover.why.c_str());
}

bool ListLeftovers(FindFunction find, const char* folder, CacheLeftoverFunction told,
                   const Report& report) noexcept {
  Error error;
  const bool listed = Guarded(error, false, [&] {
    std::vector<Leftover> leftovers;
    if (!find(WithSlash(folder), &leftovers, error)) return false;
    for (const Leftover& one : leftovers) {
      told(report.context,
           {one.name.c_str(), one.kind, one.state, one.why.c_str(), one.bytes, one.since});
    }
    return true;
  });
  if (!listed) report.Say("%s", error.text());
  return listed;
}

bool RemoveLeftover(RemoveFunction remove, const char* folder, const char* name, bool force,
                    const Report& report) noexcept {
  Error error;
  const bool removed = Guarded(error, false, [&] {
    if (name == nullptr || std::strchr(name, '/') != nullptr) {
      return error.Set(Error::eRefused, "the name is not that of a leftover");
    }
    return remove(WithSlash(folder), name, force, error);
  });
  if (!removed) report.Say("%s", error.text());
  return removed;
}

}  // namespace kelsdk::io
