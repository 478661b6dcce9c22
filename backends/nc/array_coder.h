#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "backends/nc/element_type.h"
#include "backends/nc/predicted.h"

namespace kelsdk::nc {

/// Puts the arrays of one channel of a data file into the predicted form, each as it comes. It
/// keeps those that later ones are predicted from: at most four, none of which is needed where
/// arrays stand by themselves. May throw std::bad_alloc.
class ArrayCoder {
 public:
  /// @param offset  that the payload will have
  /// @param alone   to be predicted from no other array
  /// @return false when the array is to be stored as `encoder->Decoded()` gives it
  bool Encode(PredictedEncoder* encoder, EType type, const void* array, std::uint32_t count,
              double bound, std::uint64_t offset, bool alone);

  /// The array encoded last has been written.
  void NoteWritten(std::uint64_t offset, std::uint64_t storedSize);

  /// Another file follows.
  void Forget() { place_ = 0; }

 private:
  struct Kept {
    std::uint64_t offset = 0;  // 0 for none
    std::uint64_t storedSize = 0;
    ArrayKeys keys;
  };

  const Kept* ChooseBase(std::uint32_t depth, std::uint64_t offset, PredictedHeader* header) const;

  std::uint32_t place_ = 0;              // of the next array, from one that has no base to the next
  std::uint32_t count_ = 0;              // elements of the arrays kept
  std::array<Kept, kDeepestBase> kept_;  // by depth
  ArrayKeys leaf_;                       // of an array that none is predicted from
};

}  // namespace kelsdk::nc
