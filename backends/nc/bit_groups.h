#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "backends/io/endian.h"

namespace kelsdk::nc {

// Groups of numbers in as few bits as most of them need; docs/nc-format.md gives the bytes. All is
// inline, for callers are compiled for more than one instruction set.

constexpr std::size_t kGroupSize = 32;

/// A group never takes more: a byte that tells the width, then 32 bits each.
constexpr std::size_t kMostGroupBytes = 1 + 4 * kGroupSize;

/// How far behind a group of the greatest size packing may write.
constexpr std::size_t kPackSlack = 16;
/// How far behind the end of a group unpacking may read.
constexpr std::size_t kUnpackSlack = 136;

namespace bit_groups {

constexpr unsigned int kWordBits = 32;
constexpr unsigned int kHasExceptions = 0x80;
constexpr std::size_t kExceptionBytes = 5;  // how many bits more, and which numbers

constexpr std::size_t BytesOf(std::size_t bits) {
  return (bits + 7) / 8;
}

constexpr std::uint32_t MaskOf(unsigned int width) {
  return static_cast<std::uint32_t>((std::uint64_t{1} << width) - 1);
}

// So many bits for every number; for those that need more, the rest follows in so many more.
struct Widths {
  unsigned int common = 0;
  unsigned int extra = 0;
};

// A byte for every width, eight to a word: 1 where a number of the row's width exceeds it.
using Counts = std::array<std::uint64_t, kWordBits / 8>;
constexpr auto kExceeded = [] {
  std::array<Counts, kWordBits + 1> rows = {};
  for (unsigned int width = 0; width <= kWordBits; ++width) {
    for (unsigned int i = 0; i < width; ++i)
      rows[width][i / 8] |= std::uint64_t{1} << (8 * (i % 8));
  }
  return rows;
}();

inline Widths ChooseWidths(const std::uint32_t* numbers, std::size_t count) {
  Counts wider = {};
  std::uint32_t any = 0;
  for (std::size_t i = 0; i < kGroupSize; ++i) {
    const Counts& row = kExceeded[static_cast<std::size_t>(std::bit_width(numbers[i]))];
    for (std::size_t k = 0; k < wider.size(); ++k) wider[k] += row[k];
    any |= numbers[i];
  }
  const auto widest = static_cast<unsigned int>(std::bit_width(any));
  const auto n = static_cast<unsigned int>(count);
  Widths best = {widest, 0};
  unsigned int fewest = n * widest;
  for (unsigned int width = widest; width-- > 0;) {
    const auto exceptions = static_cast<std::uint8_t>(wider[width / 8] >> (8 * (width % 8)));
    const unsigned int bits =
        n * width + unsigned{8 * kExceptionBytes} + exceptions * (widest - width);
    if (bits < fewest) {
      fewest = bits;
      best = {width, widest - width};
    }
  }
  return best;
}

// Appends numbers of few bits, the first in the lowest ones.
class BitWriter {
 public:
  explicit BitWriter(std::uint8_t* out) : out_(out) {}

  /// At most 57 bits.
  void Put(std::uint64_t number, unsigned int width) {
    bits_ |= number << used_;
    used_ += width;
    io::StoreLittle(out_, bits_);
    out_ += used_ / 8;
    bits_ >>= used_ / 8 * 8;
    used_ %= 8;
  }

  std::uint8_t* End() const { return out_ + BytesOf(used_); }

 private:
  std::uint8_t* out_;
  std::uint64_t bits_ = 0;
  unsigned int used_ = 0;
};

// The lowest bits of a group's numbers, as many at once as go together.
inline void PackNumbers(const std::uint32_t* numbers, unsigned int width, std::uint8_t* out) {
  const std::uint64_t mask = MaskOf(width);
  BitWriter writer(out);
  if (width <= 14) {
    for (std::size_t i = 0; i < kGroupSize; i += 4) {
      const std::uint64_t low = (numbers[i] & mask) | (numbers[i + 1] & mask) << width;
      const std::uint64_t high = (numbers[i + 2] & mask) | (numbers[i + 3] & mask) << width;
      writer.Put(low | high << (2 * width), 4 * width);
    }
  } else if (width <= 28) {
    for (std::size_t i = 0; i < kGroupSize; i += 2) {
      writer.Put((numbers[i] & mask) | (numbers[i + 1] & mask) << width, 2 * width);
    }
  } else {
    for (std::size_t i = 0; i < kGroupSize; ++i) writer.Put(numbers[i] & mask, width);
  }
}

inline void UnpackNumbers(const std::uint8_t* in, unsigned int width, std::uint32_t* numbers) {
  const std::uint32_t mask = MaskOf(width);
  for (std::size_t i = 0; i < kGroupSize; ++i) {
    const std::size_t at = i * width;
    const std::uint64_t bits = io::LoadLittle<std::uint64_t>(in + at / 8) >> (at % 8);
    numbers[i] = static_cast<std::uint32_t>(bits) & mask;
  }
}

/// Packs a group of which `count` numbers, at least one, matter and the rest is zero. Gives where
/// it ends; what is written may reach kPackSlack bytes behind a group of the greatest size.
inline std::uint8_t* PackGroup(const std::uint32_t* numbers, std::size_t count, std::uint8_t* out) {
  const Widths widths = ChooseWidths(numbers, count);
  const std::size_t size = BytesOf(count * widths.common);
  *out++ = static_cast<std::uint8_t>(widths.common | (widths.extra != 0 ? kHasExceptions : 0));
  if (widths.extra == 0) {
    PackNumbers(numbers, widths.common, out);
    return out + size;
  }
  std::uint32_t wider = 0;
  for (std::size_t i = 0; i < kGroupSize; ++i) {
    wider |= std::uint32_t{numbers[i] > MaskOf(widths.common)} << i;
  }
  *out = static_cast<std::uint8_t>(widths.extra);
  io::StoreLittle(out + 1, wider);
  out += kExceptionBytes;
  PackNumbers(numbers, widths.common, out);
  BitWriter rest(out + size);
  for (; wider != 0; wider &= wider - 1) {
    rest.Put(numbers[std::countr_zero(wider)] >> widths.common, widths.extra);
  }
  return rest.End();
}

/// Unpacks a group of `count` numbers into room for a whole one; what follows the last is
/// undefined. Gives where the group ends; null when that is behind `end` or the bytes are no group.
inline const std::uint8_t* UnpackGroup(const std::uint8_t* in, const std::uint8_t* end,
                                       std::size_t count, std::uint32_t* numbers) {
  if (in >= end) return nullptr;
  const unsigned int form = *in++;
  const unsigned int width = form & ~kHasExceptions;
  if (width > kWordBits) return nullptr;
  const std::size_t size = BytesOf(count * width);
  const auto left = static_cast<std::size_t>(end - in);
  if (form == width) {
    if (size > left) return nullptr;
    UnpackNumbers(in, width, numbers);
    return in + size;
  }
  if (kExceptionBytes + size > left) return nullptr;
  const unsigned int extra = *in;
  const auto wider = io::LoadLittle<std::uint32_t>(in + 1);
  if (extra == 0 || width + extra > kWordBits) return nullptr;
  const std::size_t restSize = BytesOf(static_cast<std::size_t>(std::popcount(wider)) * extra);
  if (kExceptionBytes + size + restSize > left) return nullptr;
  in += kExceptionBytes;
  UnpackNumbers(in, width, numbers);
  in += size;
  std::size_t at = 0;  // bits
  for (std::uint32_t rest = wider; rest != 0; rest &= rest - 1) {
    const std::uint64_t bits = io::LoadLittle<std::uint64_t>(in + at / 8) >> (at % 8);
    numbers[std::countr_zero(rest)] |= (static_cast<std::uint32_t>(bits) & MaskOf(extra)) << width;
    at += extra;
  }
  return in + restSize;
}

}  // namespace bit_groups

using bit_groups::PackGroup;
using bit_groups::UnpackGroup;

}  // namespace kelsdk::nc
