#pragma once

#include <vector>

#include "tools/check.h"
#include "tools/poses.h"

namespace kelcache {

/// Judges the samples of one channel. Of the findings the kind, the sample numbers, the point and
/// the text are set; they come by time.
/// @param times    seconds of all samples, where they follow no rule; else empty
/// @param points   the elements are places of points
/// @param maxMove  how far a point may move from one sample to the next; infinite: by the typical
///                 moves
/// @param first    number of the first sample
std::vector<Finding> ApplyRules(const Poses& poses, const std::vector<double>& times, bool points,
                                double maxMove, std::uint64_t first);

}  // namespace kelcache
