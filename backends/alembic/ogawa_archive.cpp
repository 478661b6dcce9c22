#include "backends/alembic/ogawa_archive.h"

#include <algorithm>
#include <utility>

#include "backends/alembic/ogawa_hierarchy.h"
#include "backends/alembic/samples.h"
#include "backends/io/byte_reader.h"
#include "backends/io/checked.h"

namespace kelsdk::alembic {
namespace {

using Ull = unsigned long long;  // for messages

constexpr std::uint64_t kWindowSlots = 512;              // 4 KB for each property in use
constexpr std::uint64_t kSizesAhead = kWindowSlots / 2;  // as many as a window of an array has
constexpr unsigned int kMostNeighbours = 8;              // whose lists bound the samples of one

// An array's samples have a block of dimensions beside each block of values.
std::uint64_t SlotsPerSample(const Property& property) {
  return property.kind == EPropertyKind::eArray ? 2 : 1;
}

// Near enough for one block of the cache to hold both.
bool IsNear(std::uint64_t a, std::uint64_t b) {
  return std::max(a, b) - std::min(a, b) <= BlockCache::kBlockBytes;
}

// Bytes of values in a block that takes so many bytes of the file; at least 0.
std::uint64_t SampleBytes(std::uint64_t blockBytes) {
  return blockBytes - std::min(blockBytes, OgawaFile::kBeforeValues);
}

// Whether another property changes about as often, so that its samples may stand between. No list
// that is much longer is gone through for this: the work stays in proportion to the property's own.
bool IsNeighbour(const Hierarchy& hierarchy, PropertyId property, PropertyId other) {
  if (other >= hierarchy.properties.size()) return false;
  const Property& header = hierarchy.properties[other];
  if (header.kind == EPropertyKind::eCompound || header.IsConstant()) return false;
  return header.StoredCount() <= 2 * hierarchy.properties[property].StoredCount();
}

}  // namespace

bool OgawaArchive::Open(const char* path, io::Error& error) {
  if (!file_.Open(path, error)) return false;
  if (!HierarchyReader(file_, hierarchy_, sampleGroups_).Read(error)) return false;
  lists_.resize(hierarchy_.properties.size());
  listBudget_ = file_.Size();
  file_.ReleaseHeaders();
  return true;
}

bool OgawaArchive::OpenList(PropertyId property, io::Error& error) {
  OgawaGroup group;
  if (!file_.OpenGroup(sampleGroups_[property], "a list of samples", group, error)) return false;
  const Property& header = hierarchy_.properties[property];
  const std::uint64_t needed = header.StoredCount() * SlotsPerSample(header);
  if (needed > group.slotCount) {
    return error.Set(io::Error::eDamaged, "%llu slots for samples are needed, %llu are stored",
                     static_cast<Ull>(needed), static_cast<Ull>(group.slotCount));
  }
  // No two properties share a list, so all lists together fit the file.
  if (needed * sizeof(OgawaSlot) > listBudget_) {
    return error.Set(io::Error::eDamaged, "the lists of samples take more than the file can hold");
  }
  group.slotCount = needed;
  auto list = std::make_unique<SampleList>();
  list->group = group;
  list->window =
      std::make_unique<OgawaSlot[]>(static_cast<std::size_t>(std::min(needed, kWindowSlots)));
  lists_[property] = std::move(list);
  listBudget_ -= needed * sizeof(OgawaSlot);
  return true;
}

bool OgawaArchive::MoveWindow(SampleList& list, std::uint64_t slot, io::Error& error) {
  list.windowCount = 0;
  const std::uint64_t first = slot - slot % kWindowSlots;
  const auto count = static_cast<std::size_t>(std::min(kWindowSlots, list.group.slotCount - first));
  const bool sparse = list.group.slotCount > kWindowSlots;
  if (!file_.ReadSlots(list.group, first, count, list.window.get(), error, sparse)) return false;
  list.windowFirst = first;
  list.windowCount = count;
  return true;
}

bool OgawaArchive::Locate(PropertyId property, std::uint64_t stored, SampleSlots& slots,
                          io::Error& error) {
  if (lists_[property] == nullptr && !OpenList(property, error)) return false;
  SampleList& list = *lists_[property];
  const std::uint64_t perSample = SlotsPerSample(hierarchy_.properties[property]);
  const std::uint64_t slot = stored * perSample;
  const bool inWindow = slot >= list.windowFirst && slot - list.windowFirst < list.windowCount;
  if (!inWindow && !MoveWindow(list, slot, error)) return false;
  const OgawaSlot* found = &list.window[static_cast<std::size_t>(slot - list.windowFirst)];
  slots.values = found[0];
  slots.dimensions = perSample == 2 ? found[1] : OgawaSlot(~(~std::uint64_t{0} >> 1));
  if (slots.dimensions.IsData()) return true;
  return error.Set(io::Error::eDamaged, "the dimensions of a sample are a group, not a block");
}

bool OgawaArchive::CheckWhole(PropertyId property, std::uint64_t valueBytes,
                              io::Error& error) const {
  if (valueBytes > lists_[property]->mostBytes) {
    return error.Set(io::Error::eDamaged, "a sample of %llu bytes reaches into another block",
                     static_cast<Ull>(valueBytes));
  }
  return CheckSampleSize(hierarchy_.properties[property], valueBytes, error);
}

bool OgawaArchive::ReadValues(PropertyId property, std::uint64_t stored, void* values,
                              std::uint64_t room, std::uint64_t& valueBytes, io::Error& error) {
  SampleSlots slots;
  if (!Locate(property, stored, slots, error)) return false;
  SampleList& list = *lists_[property];
  if (!file_.ReadValues(property, slots.values, list.expectedBytes, values, room, valueBytes,
                        error)) {
    return false;
  }
  list.expectedBytes = valueBytes;
  return CheckWhole(property, valueBytes, error);
}

bool OgawaArchive::ReadDimensions(PropertyId property, std::uint64_t stored, Dimensions& dimensions,
                                  io::Error& error) {
  SampleSlots slots;
  std::vector<std::uint8_t> block;
  if (!Locate(property, stored, slots, error) ||
      !file_.ReadBlock(slots.dimensions, Dimensions::kMostRank * sizeof(std::uint64_t),
                       "a block of dimensions", block, error)) {
    return false;
  }
  io::ByteReader in(block.data(), block.size());
  dimensions.rank = block.size() / sizeof(std::uint64_t);
  for (std::size_t i = 0; i < dimensions.rank; ++i) dimensions.sizes[i] = in.U64();
  if (in.AtEnd()) return true;
  return error.Set(io::Error::eDamaged, "a block of dimensions of %zu bytes", block.size());
}

bool OgawaArchive::ValueBytes(PropertyId property, std::uint64_t stored, std::uint64_t& valueBytes,
                              io::Error& error) {
  SampleSlots slots;
  if (!Locate(property, stored, slots, error)) return false;
  const std::uint64_t offset = slots.values.Offset();
  const bool sparse = !IsNear(offset, lastSizeOffset_);
  lastSizeOffset_ = offset;
  std::uint64_t size = 0;
  return file_.BlockSize(slots.values, sparse, size, error) &&
         OgawaFile::ValueBytes(size, valueBytes, error) && CheckWhole(property, valueBytes, error);
}

template <typename Visit>
bool OgawaArchive::VisitSlots(const OgawaGroup& group, std::uint64_t count, io::Error& error,
                              Visit visit) {
  OgawaSlot slots[kWindowSlots];
  for (std::uint64_t first = 0; first < count; first += kWindowSlots) {
    const auto some = static_cast<std::size_t>(std::min(kWindowSlots, count - first));
    if (!file_.ReadSlots(group, first, some, slots, error)) return false;
    for (std::size_t i = 0; i < some; ++i) visit(slots[i], first + i);
  }
  return true;
}

// Of samples that are written one after the other each ends where the next one begins.
bool OgawaArchive::BoundByOwnList(PropertyId property, SampleBounds& bounds, io::Error& error) {
  if (lists_[property] == nullptr && !OpenList(property, error)) return false;
  const OgawaGroup& group = lists_[property]->group;
  const std::uint64_t perSample = SlotsPerSample(hierarchy_.properties[property]);
  const bool read =
      VisitSlots(group, group.slotCount, error, [&](OgawaSlot slot, std::uint64_t at) {
        if (at % perSample == 0) bounds.Add(slot.Offset(), file_.Size());
        bounds.Note(slot.Offset());
      });
  bounds.Note(group.offset);  // a list is written after what it lists
  return read;
}

// Writers go from frame to frame: a sample ends where that of another property of the same frame
// begins. Which one that is their order in the hierarchy suggests.
void OgawaArchive::BoundByNeighbours(PropertyId property, std::uint64_t valueBytes,
                                     SampleBounds& bounds) {
  constexpr PropertyId kFurthest = 64;
  unsigned int lists = 0;
  const auto isDone = [&] {
    return lists == kMostNeighbours || SampleBytes(bounds.Most(bounds.Longest())) <= valueBytes;
  };
  if (isDone()) return;
  for (PropertyId distance = 1; distance <= kFurthest; ++distance) {
    for (const PropertyId other : {property + distance, property - distance}) {
      if (!IsNeighbour(hierarchy_, property, other) || !BoundByList(other, bounds)) continue;
      ++lists;
      if (isDone()) return;
    }
  }
}

bool OgawaArchive::BoundByList(PropertyId other, SampleBounds& bounds) {
  const Property& header = hierarchy_.properties[other];
  io::Error ignored;
  OgawaGroup group;
  if (!file_.OpenGroup(sampleGroups_[other], "a list of samples", group, ignored)) return false;
  const std::uint64_t slots = header.StoredCount() * SlotsPerSample(header);
  bounds.StartList();
  return VisitSlots(group, std::min(slots, group.slotCount), ignored,
                    [&](OgawaSlot slot, auto) { bounds.Note(slot.Offset()); });
}

// The sizes of large samples lie far apart: each costs a trip to the disk or the server, unless all
// are under way at once.
void OgawaArchive::ExpectSizes(PropertyId property, std::uint64_t stored, std::uint64_t valueBytes,
                               const SampleBounds& bounds) {
  const std::uint64_t end = std::min<std::uint64_t>(stored + kSizesAhead, bounds.Count());
  if (end - stored < 2) return;
  io::Error ignored;
  SampleSlots slots;
  std::uint64_t last = 0;
  for (bool first = true; stored < end; ++stored) {
    if (SampleBytes(bounds.Most(stored)) <= valueBytes) continue;
    if (!Locate(property, stored, slots, ignored)) return;
    if (first && file_.HasBlockSizeInMemory(slots.values)) return;
    first = false;
    if (!IsNear(slots.values.Offset(), last)) file_.ExpectBlockSize(slots.values);
    last = slots.values.Offset();
  }
}

bool OgawaArchive::LargestSample(PropertyId property, std::uint64_t& valueBytes, io::Error& error) {
  SampleBounds bounds;
  if (!BoundByOwnList(property, bounds, error)) return false;
  if (bounds.Count() == 0) return error.Set(io::Error::eRefused, "a property without samples");
  io::Error damage;
  bool any = false;
  valueBytes = 0;
  // False when there is more wrong than a damaged sample.
  const auto look = [&](std::uint64_t stored) {
    std::uint64_t bytes = 0;
    bounds.Settle(static_cast<std::size_t>(stored));
    if (!ValueBytes(property, stored, bytes, damage)) return damage.kind() == io::Error::eDamaged;
    any = true;
    valueBytes = std::max(valueBytes, bytes);
    return true;
  };
  const auto canExceed = [&](std::uint64_t stored) {
    const std::uint64_t most = bounds.Most(static_cast<std::size_t>(stored));
    return most != 0 && (!any || SampleBytes(most) > valueBytes);
  };
  bool readable = look(0);
  if (readable && any) BoundByNeighbours(property, valueBytes, bounds);
  const std::uint64_t longest = bounds.Longest();
  if (readable && canExceed(longest)) readable = look(longest);
  for (std::uint64_t stored = 1; readable && stored < bounds.Count(); ++stored) {
    if (stored % kSizesAhead == 1) ExpectSizes(property, stored, valueBytes, bounds);
    if (canExceed(stored)) readable = look(stored);
  }
  if (readable && any) {
    lists_[property]->mostBytes = valueBytes;
    return true;
  }
  error = damage;
  return false;
}

bool OgawaArchive::SampleIdentity(PropertyId property, std::uint64_t stored,
                                  std::uint64_t& identity, io::Error& error) {
  SampleSlots slots;
  if (!Locate(property, stored, slots, error)) return false;
  identity = slots.values.Offset();
  return true;
}

bool OgawaArchive::ReadThrough(PropertyId property, std::uint64_t stored,
                               std::vector<std::uint8_t>& scratch, io::Error& error) {
  SampleSlots slots;
  return Locate(property, stored, slots, error) && file_.ReadThrough(slots.values, scratch, error);
}

}  // namespace kelsdk::alembic
