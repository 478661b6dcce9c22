#pragma once

#include <vector>

#include "tools/summary.h"

namespace kelcache {

/// Whether a channel's elements are vectors of floating point.
bool HoldsVectors(const ChannelSummary& channel);

/// Whether a channel holds places of points: the one of a PC2 file, and vectors of floating point
/// that say so ("Points" in an NC cache, "point" in an archive).
bool HoldsPositions(const CacheSummary& summary, const ChannelSummary& channel);

/// Those that do; where none says so, the first channel of vectors of floating point, if any.
std::vector<const ChannelSummary*> PositionChannels(const CacheSummary& summary);

}  // namespace kelcache
