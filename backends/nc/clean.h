#pragma once

#include <string>
#include <vector>

#include "backends/io/leftover.h"

namespace kelsdk::nc {

// What dead writers and recoveries of NC caches left in a folder. May throw std::bad_alloc.

bool FindLeftovers(const std::string& folder, std::vector<io::Leftover>* leftovers,
                   io::Error& error);

/// Removes one by its name, with its lock held. False with nothing removed unless it may be, and
/// with a part left when the system refuses.
bool RemoveLeftover(const std::string& folder, const std::string& leftoverName, bool force,
                    io::Error& error);

}  // namespace kelsdk::nc
