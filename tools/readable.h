#pragma once

#include <string>

namespace kelcache {

/// Throws eFailed with the reason when the system gives no regular file of this name to read.
void ExpectReadable(const std::string& file);

/// Reads a file from start to end: whether the system fails on the way, other than by having no
/// such file.
bool SystemFails(const std::string& file);

}  // namespace kelcache
