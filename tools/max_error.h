#pragma once

#include <optional>
#include <string>

#include "tools/numbers.h"
#include "tools/track.h"

namespace kelcache {

/// How far --max-error lets values move.
struct MaxError {
  double amount = 0;       ///< above 0
  bool isPercent = false;  ///< of the longest side of a channel's box over all frames

  /// The bound for one channel, in its own unit; 0 where nothing may move: for integers, and where
  /// the box has no size. Visits every moment of the track for a percentage. Throws eFailed.
  double Of(Track& track, Watch& watch) const;
};

/// "0.0005" or "0.01%".
std::optional<MaxError> ParseMaxError(const std::string& text);

/// Notes how far values may be from the source's; of 0 nothing.
void NoteHowFarValuesMove(const std::string& target, const std::string& channel,
                          double maximumError, Watch& watch);

/// Notes that values which were let move before are copied as they are, which takes more room.
void NoteThatBoundIsGone(const std::string& target, const std::string& channel, double maximumError,
                         Watch& watch);

}  // namespace kelcache
