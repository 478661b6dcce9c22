#include "tools/max_error.h"

#include <algorithm>
#include <cmath>

#include "tools/bounds.h"
#include "tools/numbers.h"

namespace kelcache {
namespace {

double LongestSide(Track& track, Watch& watch) {
  const ChannelSummary& channel = track.channel();
  Bounds all;
  std::vector<float> floats;
  for (std::uint64_t i = 0; i < track.Count(); ++i) {
    watch.ThrowIfInterrupted();
    const Array array = track.Fetch(track.At(i));
    const auto elements = static_cast<unsigned int>(array.Count() / channel.components);
    all.Add(BoundsOf(AsFloats(array, &floats), elements, channel.components));
  }
  double longest = 0;
  for (std::size_t k = 0; k < all.low.size(); ++k) {
    const double side = double(all.high[k]) - double(all.low[k]);
    if (std::isfinite(side)) longest = std::max(longest, side);
  }
  return longest;
}

}  // namespace

double MaxError::Of(Track& track, Watch& watch) const {
  if (IsInteger(track.channel().value)) return 0;
  return isPercent ? LongestSide(track, watch) * amount / 100 : amount;
}

std::optional<MaxError> ParseMaxError(const std::string& text) {
  const bool isPercent = text.ends_with('%');
  const auto amount = ParseNumber(isPercent ? text.substr(0, text.size() - 1) : text);
  if (!amount || !(*amount > 0)) return {};
  return MaxError{*amount, isPercent};
}

void NoteHowFarValuesMove(const std::string& target, const std::string& channel,
                          double maximumError, Watch& watch) {
  if (maximumError == 0) return;
  watch.Note(target + ": values of channel " + channel + " are within " +
             RoundedText(maximumError) + " of the source's");
}

void NoteThatBoundIsGone(const std::string& target, const std::string& channel, double maximumError,
                         Watch& watch) {
  watch.Note(target + ": values of channel " + channel + ", which were let move by " +
             RoundedText(maximumError) +
             ", stay as they are and take more room; convert --max-error lets them move again");
}

}  // namespace kelcache
