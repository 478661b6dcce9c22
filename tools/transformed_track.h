#pragma once

#include "tools/track.h"

namespace kelcache {

/// A track with its values transformed; itself where its channel has nothing to transform. Throws
/// eUsage where nothing says what the channel holds.
std::unique_ptr<Track> Transformed(std::unique_ptr<Track> track, const Transform& transform);

}  // namespace kelcache
