#pragma once

#include <string>

#include "tools/formats.h"
#include "tools/watch.h"

namespace kelcache {

/// Notes, in one line, when a writer of a cache died and left something that
/// `recover` can save. The cache itself need not exist.
void NoteLeftovers(const std::string& file, Format format, Watch& watch);

}  // namespace kelcache
