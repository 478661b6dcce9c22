#pragma once

#include <cstdint>
#include <optional>

#include "backends/nc/timeline.h"

namespace kelsdk::nc {

/// Samples at even steps, as a PC2 file has them: sample i lies at start + i x interval.
struct EvenSpacing {
  double start = 0;     ///< frames
  double interval = 0;  ///< frames
};

/// The even spacing that a channel's samples lie within a tick of. Ticks are whole, so a step that
/// is no whole number of them leaves each sample up to half a tick beside its place: of all the
/// spacings that can be meant, the one of the simplest numbers is given back.
/// @param ticksPerFrame  exact, above 0
/// @param soleInterval   ticks; what a single sample is followed after
/// @return nothing when the samples are not evenly spaced, or there are none
std::optional<EvenSpacing> FindEvenSpacing(const Times& times, double ticksPerFrame,
                                           std::uint32_t soleInterval);

}  // namespace kelsdk::nc
