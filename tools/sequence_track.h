#pragma once

#include <vector>

#include "tools/track.h"

namespace kelcache {

/// Which of two caches gives the samples where both have some.
enum class EPrefer { eNone, eFirst, eLast };

/// One channel through several caches, whose samples follow one another in time. Within the range
/// of the samples of one that is preferred, those of the others are left out.
/// @param tracks  in the order in which the caches were named
/// @param note    told where samples are missing between two caches
/// Throws eFailed, saying where, when ranges overlap and none is preferred.
std::unique_ptr<Track> MakeSequence(std::vector<std::unique_ptr<Track>> tracks, EPrefer prefer,
                                    const Say& note);

}  // namespace kelcache
