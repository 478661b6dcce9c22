#include "tools/target.h"

#include <sys/stat.h>

#include <filesystem>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

ino_t InodeOf(const std::string& file) {
  struct stat entry = {};
  return ::stat(file.c_str(), &entry) == 0 ? entry.st_ino : 0;
}

}  // namespace

Target::Target(const std::string& file, bool force) : file_(file), before_(InodeOf(file)) {
  if (before_ != 0 && !force) throw Failed(file, "exists already; --force replaces it");
}

void Target::ExpectOtherThan(const std::string& source) const {
  std::error_code missing;
  if (std::filesystem::equivalent(source, file_, missing)) {
    throw ToolError(eUsage, file_ + ": is the source itself");
  }
}

void Target::ExpectReplaced() const {
  const ino_t now = InodeOf(file_);
  if (now == 0 || now == before_) {
    throw Failed(file_, "could not be completed; what was written stays beside it");
  }
}

}  // namespace kelcache
