#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "backends/io/error.h"
#include "backends/nc/bit_groups.h"
#include "backends/nc/element_type.h"
#include "backends/nc/predicted_header.h"

namespace kelsdk::nc {

// The second compact form: the values of an array predicted from those before them and from an
// earlier array, the differences packed. docs/nc-format.md gives the bytes.

/// Bytes that must be readable behind the stored form of an array.
constexpr std::size_t kDecodeSlack = kUnpackSlack;

/// The keys of an array, what another array is predicted from: all of its first component, then all
/// of the next. Its memory is reused.
struct ArrayKeys {
  KeyRule rule;
  std::vector<std::uint8_t> words;
};

/// Encodes one array after the other; its memory is reused. May throw std::bad_alloc.
class PredictedEncoder {
 public:
  /// @param base    of the same type and count; null without a base
  /// @param bound   how far a value may move at most, in the values' unit; 0: not at all
  /// @param header  what the stored form begins with; the base is left out where it is of no use
  /// @param keys    out: of the array as it is decoded
  /// @return false when the stored form would not be smaller than the array, which is then to be
  ///         stored as Decoded gives it
  bool Encode(EType type, const void* array, std::uint32_t elementCount, const ArrayKeys* base,
              double bound, PredictedHeader header, ArrayKeys* keys);

  /// The stored form of the array encoded last, in this object's memory.
  std::span<const std::uint8_t> Stored() const { return {stored_.data(), storedSize_}; }
  /// The array encoded last as it is decoded: its own memory where no value moves. A bound that
  /// cannot be kept for every value moves none.
  const void* Decoded() const { return decoded_; }

 private:
  bool TryGrid(EType type, const void* array, std::size_t valueCount, double bound, KeyRule* rule);

  std::vector<std::uint8_t> stored_;
  std::size_t storedSize_ = 0;
  std::vector<std::uint8_t> moved_;
  const void* decoded_ = nullptr;
  ArrayKeys rekeyed_;
};

/// Decodes one array after the other; its memory is reused. May throw std::bad_alloc.
class PredictedDecoder {
 public:
  /// The stored bytes may be anything; kDecodeSlack more behind them must be readable.
  /// @param base   of the same type and count; null where the header names none
  /// @param array  filled, with rubbish on failure; null where only the keys are wanted
  /// @param keys   out: likewise
  bool Decode(EType type, std::span<const std::uint8_t> stored, std::uint32_t elementCount,
              const ArrayKeys* base, void* array, ArrayKeys* keys, io::Error& error);

 private:
  ArrayKeys rekeyed_;
};

/// The keys of an array that is stored as it is.
void KeysOfRaw(EType type, const void* array, std::uint32_t elementCount, ArrayKeys* keys);

/// The array whose keys these are.
void ArrayOfKeys(EType type, const ArrayKeys& keys, std::uint32_t elementCount, void* array);

}  // namespace kelsdk::nc
