#pragma once

#include <optional>
#include <string>

#include "tools/max_error.h"
#include "tools/nc_form.h"
#include "tools/sink.h"
#include "tools/track.h"

namespace kelcache {

/// Frames of the source to frames of the copy: frame * scale + offset.
struct FrameMap {
  double scale = 1;
  double offset = 0;

  double At(double frame) const { return frame * scale + offset; }
  bool IsIdentity() const { return scale == 1 && offset == 0; }
};

/// What a sample with fewer points than others gets for the rest.
enum class EPad {
  eNone,  ///< nothing: caches of one point count are refused
  eNan,
  eZero,
  eLast,  ///< its own last point; zero where it has none
};

struct CopyOptions : NCForm {
  std::string target;
  Format targetFormat = kelsdk::KelCache::eUnknownFormat;
  ChannelChoice channels;  ///< for PC2 the first of them
  TrackOptions take;
  kelsdk::KelFrameRate targetRate = {0, 0};  ///< frames per second of the copy; else the source's
  EPad pad = EPad::eNone;
  bool snapFrames = false;  ///< frames go to whole ticks per frame, whatever the exact rate
  std::optional<MaxError> maxError;  ///< that values may move by in a compact copy
  FrameMap map;
};

/// Copies channels of an open cache into a new one, moment by moment, each at its own time and in
/// the type that holds its values exactly, in memory that does not grow with the cache. On failure
/// or interruption nothing is left under the target's name.
/// @return samples copied
std::uint64_t Copy(Source& source, const CopyOptions& options, Watch& watch);

/// Notes that a PC2 file holds doubles as floats, of a channel of doubles.
void NoteWhatPC2Rounds(const ChannelSummary& channel, const std::string& target, Watch& watch);

/// What a verb made of one cache in another.
struct Copied {
  std::uint64_t samples = 0;
  bool missing = false;  ///< of those that the source promises
};

/// What a verb says at its end of what it wrote.
inline std::string CopiedText(const std::string& file, std::uint64_t samples) {
  return file + ": " + std::to_string(samples) + " samples written";
}

/// A channel of a copy to be.
struct CopiedChannel {
  std::unique_ptr<Track> track;
  std::string name;
};

/// Copies channels, which may be those of several caches, all of the rate that is given.
std::uint64_t CopyChannelsToNC(const std::vector<CopiedChannel>& channels,
                               const kelsdk::KelFrameRate& rate, const CopyOptions& options,
                               Watch& watch);

// The two kinds of copy; Copy chooses.
std::uint64_t CopyToNC(Source& source, const CopyOptions& options, Watch& watch);
std::uint64_t CopyToPC2(Source& source, const CopyOptions& options, Watch& watch);

}  // namespace kelcache
