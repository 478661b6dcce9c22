#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "backends/nc/bit_groups.h"
#include "backends/nc/keys.h"

namespace kelsdk::nc {

// The difference of keys from what they are predicted to be, and back. All is inline, for callers
// are compiled for more than one instruction set.

// How a component's keys are predicted: from so many keys before them, and from the base's key of
// the same element or not.
constexpr std::uint8_t kOrderMask = 3;
constexpr std::uint8_t kHighestOrder = 2;
constexpr std::uint8_t kFromBase = 4;
constexpr std::uint8_t kPredictions = 8;

constexpr std::size_t kMostComponents = 3;

/// Of each component.
using Predictions = std::array<std::uint8_t, kMostComponents>;

// The last two keys of a component, for what follows.
template <typename Word>
struct Trail {
  Word last = 0;
  Word lastButOne = 0;
};

// Replaces keys, with room for two before them, by the numbers that are stored.
template <typename Word>
void Differentiate(unsigned int order, Trail<Word>* trail, std::size_t count, Word* keys) {
  keys[-1] = trail->last;
  keys[-2] = trail->lastButOne;
  *trail = {keys[count - 1], keys[static_cast<std::ptrdiff_t>(count) - 2]};
  if (order == 0) {
    for (std::size_t i = 0; i < count; ++i) keys[i] = ZigZag(keys[i]);
  } else if (order == 1) {
    for (Word* key = keys + count; key-- > keys;) *key = ZigZag<Word>(key[0] - key[-1]);
  } else {
    for (Word* key = keys + count; key-- > keys;) {
      *key = ZigZag<Word>(key[0] - 2 * key[-1] + key[-2]);
    }
  }
}

template <typename Word>
void Integrate(unsigned int order, Trail<Word>* trail, std::size_t count, Word* numbers) {
  for (std::size_t i = 0; i < count; ++i) numbers[i] = UnZigZag(numbers[i]);
  Word last = trail->last;
  Word slope = last - trail->lastButOne;
  if (order == 1) {
    for (std::size_t i = 0; i < count; ++i) {
      slope = numbers[i];
      last += slope;
      numbers[i] = last;
    }
  } else if (order == 2) {
    for (std::size_t i = 0; i < count; ++i) {
      slope += numbers[i];
      last += slope;
      numbers[i] = last;
    }
  }
  *trail = {last, last - slope};
}

template <typename Word>
void Subtract(const Word* keys, const Word* base, std::size_t count, Word* differences) {
  if (base == nullptr) {
    std::copy_n(keys, count, differences);
  } else {
    for (std::size_t i = 0; i < count; ++i) differences[i] = keys[i] - base[i];
  }
}

// About the bits that a number takes: it only tells which prediction leaves fewer.
inline std::uint32_t BitsOf(std::uint32_t difference) {
  const std::uint32_t size = difference ^ (0 - (difference >> 31));
  // The exponent, which vectors have for nothing.
  return std::bit_cast<std::uint32_t>(static_cast<float>(static_cast<std::int32_t>(size)) + 1) >>
         23;
}
inline std::uint32_t BitsOf(std::uint64_t difference) {
  return static_cast<std::uint32_t>(std::bit_width(ZigZag(difference)));
}

// The prediction that leaves the fewest bits in some groups that stand for all.
template <typename Word>
std::uint8_t ChoosePrediction(const Word* keys, const Word* base, std::size_t count) {
  constexpr std::size_t kSamples = 32;
  constexpr std::size_t kSpan = kHighestOrder + kGroupSize;
  const std::size_t stride = std::max(kGroupSize, count / kSamples);
  std::uint32_t bits[kPredictions] = {};
  for (std::size_t at = 0; at == 0 || at + kSpan <= count; at += stride) {
    const std::size_t used = std::min(kSpan, count - at);
    for (const std::uint8_t from : {std::uint8_t{0}, kFromBase}) {
      if (from != 0 && base == nullptr) continue;
      Word taken[kSpan];
      Subtract(keys + at, from != 0 ? base + at : nullptr, used, taken);
      for (std::size_t i = kHighestOrder; i < used; ++i) {
        bits[from] += BitsOf(taken[i]);
        bits[from + 1] += BitsOf(taken[i] - taken[i - 1]);
        bits[from + 2] += BitsOf(taken[i] - 2 * taken[i - 1] + taken[i - 2]);
      }
    }
  }
  std::uint8_t best = 0;
  for (std::uint8_t i = 1; i < kPredictions; ++i) {
    const bool exists = (i & kOrderMask) <= kHighestOrder && (i < kFromBase || base != nullptr);
    if (exists && bits[i] < bits[best]) best = i;
  }
  return best;
}

}  // namespace kelsdk::nc
