#include "tools/target.h"

#include <filesystem>

#include "tools/cache_file.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

// A file that bears the name of a data file is in the way of an NC cache even where no description
// claims it.
void RefuseDataFile(const std::string& file, bool force) {
  struct Found {
    std::string replaceable;
    std::string other;
  } found;
  const auto note = [](void* context, const char* name, bool isReplaceable) {
    auto* first = static_cast<Found*>(context);
    (isReplaceable ? first->replaceable : first->other) = name;
  };
  const NCName name(file);
  kelsdk::zuCacheFileInterface::dataFilesInTheWay(name.folder.c_str(), name.baseName.c_str(), note,
                                                  &found);
  const std::filesystem::path folder = std::filesystem::path(file).parent_path();
  if (!found.other.empty()) {
    throw Failed((folder / found.other).string(), "is in the way and is no NC data file");
  }
  if (!found.replaceable.empty() && !force) {
    throw Failed((folder / found.replaceable).string(), "exists already; --force replaces it");
  }
}

}  // namespace

Target::Target(const std::string& file, bool force) : file_(file) {
  std::error_code unknown;
  if (!force && std::filesystem::exists(file, unknown)) {
    throw Failed(file, "exists already; --force replaces it");
  }
  if (FormatOf(file, "") == kelsdk::KelCache::eNCFormat) RefuseDataFile(file, force);
}

void Target::ExpectOtherThan(const std::string& source) const {
  std::error_code missing;
  if (std::filesystem::equivalent(source, file_, missing)) {
    throw ToolError(eUsage, file_ + ": is the source itself");
  }
}

}  // namespace kelcache
