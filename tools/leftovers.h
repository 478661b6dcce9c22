#pragma once

#include <string>

#include "tools/formats.h"

namespace kelcache {

/// Says on standard error, in one line, when a writer of a cache died and left something that
/// `recover` can save. The cache itself need not exist.
void TellOfLeftovers(const std::string& file, Format format);

}  // namespace kelcache
