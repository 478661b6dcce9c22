#include "tools/target.h"

#include <filesystem>

#include "tools/formats.h"
#include "tools/tool_error.h"

namespace kelcache {

void ExpectFree(const std::string& file, bool force) {
  std::error_code unknown;
  if (!force && std::filesystem::exists(file, unknown)) {
    throw Failed(file, "exists already; --force replaces it");
  }
}

Target::Target(const std::string& file, bool force) : file_(file) {
  ExpectFree(file, force);
  const FormatRow& row = RowOf(FormatOf(file, ""));
  if (row.expectFree != nullptr) row.expectFree(file, force);
}

void Target::ExpectOtherThan(const std::string& source) const {
  std::error_code missing;
  if (std::filesystem::equivalent(source, file_, missing)) {
    throw ToolError(eUsage, file_ + ": is the source itself");
  }
}

}  // namespace kelcache
