#pragma once

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kelsdk::nc {

// Keys: whole numbers that stand for the values of an array and are near each other where the
// values are. A rule turns the words of an array, its values' bits, into keys and back.

/// How the words of an array's values are turned into keys.
struct KeyRule {
  std::uint8_t shift = 0;  ///< lowest bits left away
  double step = 0;         ///< of the grid; 0 without one

  bool operator==(const KeyRule&) const = default;
};

template <typename Word>
constexpr unsigned int kBits = 8 * sizeof(Word);

template <typename Word>
using SignedOf = std::make_signed_t<Word>;

/// The bits of a real number in the order of the values, negative ones below the others. The lowest
/// `shift` bits, zero in all values, are left away.
template <typename T>
struct RealKeys {
  using Word = T;
  static constexpr bool kIsGrid = false;
  static constexpr Word kSign = Word{1} << (kBits<Word> - 1);

  unsigned int shift;

  Word ToKey(Word bits) const {
    const Word negative = Word{0} - (bits >> (kBits<Word> - 1));
    return ((bits & ~kSign) >> shift) ^ negative;
  }
  Word ToBits(Word key) const {
    const Word negative = Word{0} - (key >> (kBits<Word> - 1));
    return (((key ^ negative) << shift) & ~kSign) | (negative & kSign);
  }
};

/// Integers stand for themselves, without the lowest `shift` bits.
struct IntegerKeys {
  using Word = std::uint32_t;
  static constexpr bool kIsGrid = false;

  unsigned int shift;

  Word ToKey(Word bits) const {
    return static_cast<Word>(static_cast<SignedOf<Word>>(bits) >> shift);
  }
  Word ToBits(Word key) const { return key << shift; }
};

/// Whole steps of a grid: the value is key x step in double precision, rounded to the value's type.
/// Each is a single operation, which all machines round alike.
template <typename Real>
struct GridKeys {
  using Word = std::conditional_t<sizeof(Real) == 4, std::uint32_t, std::uint64_t>;
  static constexpr bool kIsGrid = true;
  /// Within it the product stays exact enough and the difference of two keys fits a word.
  static constexpr double kLargestKey = sizeof(Real) == 4 ? 0x1p30 : 0x1p50;
  /// Key times step stays in the range of floats.
  static constexpr double kLargestStep = 0x1p90;

  double step;
  double inverse = 1 / step;

  // A sum this large has no bits left for a fraction: its lowest bits are the number, rounded.
  static constexpr double kRounder = 0x1.8p52;

  /// The nearest step; 0 for what is beyond the largest key or no number.
  Word KeyOf(double value) const {
    const double steps = value * inverse;
    const auto rounded =
        std::bit_cast<std::uint64_t>(steps + kRounder) - std::bit_cast<std::uint64_t>(kRounder);
    return std::fabs(steps) <= kLargestKey ? static_cast<Word>(rounded) : Word{0};
  }
  Real ValueOf(Word key) const {
    return static_cast<Real>(static_cast<double>(static_cast<SignedOf<Word>>(key)) * step);
  }
  /// The value of the nearest step, for a value whose key is in range.
  Real Nearest(double value) const {
    return static_cast<Real>((value * inverse + kRounder - kRounder) * step);
  }
  Word ToKey(Word bits) const { return KeyOf(static_cast<double>(std::bit_cast<Real>(bits))); }
  Word ToBits(Word key) const { return std::bit_cast<Word>(ValueOf(key)); }
};

/// Makes a small difference a small number, whatever its sign.
template <typename Word>
Word ZigZag(Word difference) {
  return (difference << 1) ^ (Word{0} - (difference >> (kBits<Word> - 1)));
}
template <typename Word>
Word UnZigZag(Word number) {
  return (number >> 1) ^ (Word{0} - (number & 1));
}

}  // namespace kelsdk::nc
