#include "backends/nc/array_coder.h"

#include <bit>
#include <limits>

#include "backends/nc/format.h"

namespace kelsdk::nc {
namespace {

// The array at a place is predicted from that at the place with the lowest bit cleared, so that
// half of all come right after their base, and none is more than four steps from the array at
// place 0, which stands by itself.
constexpr std::uint32_t kPlaces = 1u << kDeepestBase;

std::uint32_t DepthOf(std::uint32_t place) {
  return static_cast<std::uint32_t>(std::popcount(place));
}

// No later array of the same run is predicted from one at an odd place.
bool IsLeaf(std::uint32_t place) {
  return place % 2 == 1;
}

}  // namespace

// The latest array kept above that depth: the one at the place that is meant, unless it could not
// be written.
const ArrayCoder::Kept* ArrayCoder::ChooseBase(std::uint32_t depth, std::uint64_t offset,
                                               PredictedHeader* header) const {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
  while (depth-- > 0) {
    const Kept& kept = kept_[depth];
    if (kept.offset == 0) continue;
    const std::uint64_t distance = (offset - kept.offset) / kAlignment;
    if (distance > kMost || kept.storedSize > kMost) return nullptr;
    header->baseDistance = static_cast<std::uint32_t>(distance);
    header->baseStoredSize = static_cast<std::uint32_t>(kept.storedSize);
    return &kept;
  }
  return nullptr;
}

bool ArrayCoder::Encode(PredictedEncoder* encoder, EType type, const void* array,
                        std::uint32_t count, double bound, std::uint64_t offset, bool alone) {
  if (alone || count != count_) place_ = 0;
  count_ = count;
  const std::uint32_t depth = DepthOf(place_);
  PredictedHeader header;
  header.depth = static_cast<std::uint8_t>(depth);
  const Kept* const base = ChooseBase(depth, offset, &header);
  ArrayKeys* keys = &leaf_;
  if (!alone && !IsLeaf(place_)) {
    kept_[depth].offset = 0;
    keys = &kept_[depth].keys;
  }
  return encoder->Encode(type, array, count, base != nullptr ? &base->keys : nullptr, bound, header,
                         keys);
}

void ArrayCoder::NoteWritten(std::uint64_t offset, std::uint64_t storedSize) {
  if (!IsLeaf(place_)) {
    Kept& kept = kept_[DepthOf(place_)];
    kept.offset = offset;
    kept.storedSize = storedSize;
  }
  place_ = (place_ + 1) % kPlaces;
}

}  // namespace kelsdk::nc
