#pragma once

#include <cstddef>
#include <cstdint>

#include "backends/io/byte_reader.h"
#include "backends/nc/element_type.h"
#include "backends/nc/prediction.h"

namespace kelsdk::nc {

// What the stored form of a predicted array begins with; docs/nc-format.md gives the bytes.

constexpr std::uint8_t kPredictedForm = 2;

/// Bases from an array to one that has none, at most.
constexpr std::uint32_t kDeepestBase = 4;

constexpr std::size_t kPredictedHeaderSize = 16;

/// What the stored form begins with, as far as others than the codec are concerned.
struct PredictedHeader {
  std::uint8_t depth = 0;            ///< greater than the base's, at most kDeepestBase
  std::uint32_t baseDistance = 0;    ///< from the base's payload to this one, in units of
                                     ///< kAlignment; 0 without a base
  std::uint32_t baseStoredSize = 0;  ///< bytes; 0 without a base

  bool HasBase() const { return baseDistance != 0; }
};

/// Stores all that the form begins with; gives where that ends.
std::uint8_t* StorePredictedHeader(const PredictedHeader& header, const KeyRule& rule,
                                   const Predictions& predictions, std::uint8_t* out);

/// False for anything that no array of any type begins with.
bool LoadPredictedHeader(io::ByteReader& in, PredictedHeader* header, KeyRule* rule,
                         Predictions* predictions);

/// Whether an array of that type may begin so.
bool IsSoundFor(EType type, const PredictedHeader& header, const KeyRule& rule,
                const Predictions& predictions);

}  // namespace kelsdk::nc
