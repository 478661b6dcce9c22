#pragma once

#include <optional>
#include <vector>

#include "tools/summary.h"

namespace kelcache {

/// Whether a channel's elements are vectors of floating point.
bool HoldsVectors(const ChannelSummary& channel);

/// What the values of a channel are in space.
enum class ERole {
  eNone,     ///< nothing
  ePoints,   ///< places
  eVectors,  ///< differences of places, such as velocities
  eNormals,  ///< directions
  eBoxes,    ///< two corners each
};

/// What a channel's interpretation says; empty for one that is not known.
std::optional<ERole> RoleByInterpretation(const ChannelSummary& channel);

/// Whether a channel holds places of points: the one of a PC2 file, and vectors of floating point
/// that say so ("Points" in an NC cache, "point" in an archive).
bool HoldsPositions(const CacheSummary& summary, const ChannelSummary& channel);

/// Those that do; where none says so, the first channel of vectors of floating point, if any.
std::vector<const ChannelSummary*> PositionChannels(const CacheSummary& summary);

}  // namespace kelcache
