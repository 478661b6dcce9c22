#pragma once

#include "tools/track.h"

namespace kelcache {

/// One value for each whole frame of the resampling rate in the range.
std::unique_ptr<Track> MakeFrameTrack(Source& source, const ChannelSummary& channel,
                                      const TrackOptions& options);

}  // namespace kelcache
