#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "tools/moments.h"
#include "tools/watch.h"

namespace kelcache {

class Source;

/// What may be wrong with the content of a cache that is whole in form.
enum class EFinding {
  eNotFinite,    ///< values that are no numbers, or infinite
  eJump,         ///< a point, or the box, moves too far
  eJumpBack,     ///< the pose of an earlier sample comes back in one step
  eFrozen,       ///< samples repeat the one before in the midst of motion
  eCollapsed,    ///< all points are in one place
  eCountChange,  ///< the number of elements changes
  eGap,          ///< samples are missing in time
  eMissing,      ///< samples that the file promises are not there
};

/// "not finite", "jump" and so on: what --json and the table call them.
const char* NameOf(EFinding kind);

/// Something to look at, in one sample or in several that follow one another.
struct Finding {
  EFinding kind = EFinding::eNotFinite;
  int channel = 0;
  std::uint64_t firstSample = 0;  ///< their numbers among the channel's samples
  std::uint64_t lastSample = 0;
  std::optional<Moment> first;  ///< empty where there is no sample: eMissing
  std::optional<Moment> last;
  std::optional<unsigned int> point;
  std::optional<std::uint64_t> like;  ///< eJumpBack: the earlier sample
  std::string text;                   ///< what was found, with the values

  /// "channel P, frames 10 to 14, point 7: ...": one line; the channel's name where it is not "".
  std::string Line(const std::string& channelName) const;
};

struct CheckOptions {
  std::string asName;
  std::vector<std::string> channels;  ///< names or numbers; none: all
  FrameRange range;
  double maxMove = std::numeric_limits<double>::infinity();  ///< infinite: by the cache's own moves
};

struct Checked {
  std::string format;
  std::uint64_t samples = 0;              ///< of the channel that has most, in the range
  std::optional<unsigned int> points;     ///< of the first channel that was looked at
  std::vector<std::string> channelNames;  ///< by channel number; "" in a cache of one channel
  std::vector<Finding> findings;          ///< by channel, then by time
};

/// Looks through the samples of a cache for content that is likely to be wrong. Values that are not
/// finite are looked for in every channel, gaps in time as well; the rest in places of points.
///
/// A point jumps when it moves more than kOutOfStep times as fast as it does itself before and
/// after and, also, as the fastest point of the typical (median) step of the channel; or when it
/// suddenly moves so fast, and further than the diagonal of the typical box. With a largest move
/// given, it jumps when it moves further than that. Samples are frozen when they repeat the one
/// before while the steps before and after are at least a quarter of the typical one, and repeats
/// are no habit of the cache. A changing number of points is one finding a change, unless it is a
/// habit, as with particles. Throws ToolError, and what the watch throws.
Checked Check(const std::string& file, const CheckOptions& options, Watch& watch);

/// The same for one channel of an open cache.
void CheckChannel(Source& source, const ChannelSummary& channel, const CheckOptions& options,
                  Watch& watch, Checked* checked);

}  // namespace kelcache
