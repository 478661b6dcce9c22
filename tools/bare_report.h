#pragma once

#include <string>

#include "tools/json.h"

namespace kelcache {

/// The fields that every report has, of what was done without a word.
Json BareReport(const char* verb, const std::string& file);

/// In one line, or indented.
std::string TextOf(const Json& report, bool inOneLine);

}  // namespace kelcache
