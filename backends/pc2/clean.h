#pragma once

#include <string>
#include <vector>

#include "backends/io/leftover.h"

namespace kelsdk::pc2 {

// What dead writers and recoveries of PC2 files left in a folder. May throw std::bad_alloc.

/// @param folder  with a final "/"
bool FindLeftovers(const std::string& folder, std::vector<io::Leftover>* leftovers,
                   io::Error& error);

/// Removes one by its name, with its lock held. False with nothing removed unless it may be.
bool RemoveLeftover(const std::string& folder, const std::string& leftoverName, bool force,
                    io::Error& error);

}  // namespace kelsdk::pc2
