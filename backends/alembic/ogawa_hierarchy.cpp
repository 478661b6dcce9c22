#include "backends/alembic/ogawa_hierarchy.h"

#include <algorithm>
#include <limits>

#include "backends/io/byte_reader.h"

namespace kelsdk::alembic {
namespace {

using Ull = unsigned long long;  // for messages

constexpr std::size_t kRootSlots = 6;
enum ERootSlot { eLayoutVersion, eLibraryVersion, eTopObject, eMetadata, eSamplings, eTable };

// A million children with names of 200 characters stay below.
constexpr std::uint64_t kMostHeaderBytes = std::uint64_t{1} << 28;
// Objects and properties, each of which takes a slot: they are counted in 31 bits.
constexpr std::uint64_t kMostEntries = std::numeric_limits<std::int32_t>::max();
// Four bytes, the length of the name and one character of it.
constexpr std::size_t kLeastRecordBytes = 6;

}  // namespace

HierarchyReader::HierarchyReader(OgawaFile& file, Hierarchy& hierarchy,
                                 std::vector<OgawaSlot>& sampleGroups)
    : file_(file),
      hierarchy_(hierarchy),
      builder_(hierarchy),
      sampleGroups_(sampleGroups),
      groupBudget_(std::min(file.Size(), kMostEntries * sizeof(OgawaSlot))),
      // Blocks of equal headers may be kept once for several compounds.
      headerBudget_(4 * std::min(file.Size(), std::numeric_limits<std::uint64_t>::max() / 4)) {}

bool HierarchyReader::Read(io::Error& error) {
  OgawaSlot top;
  return ReadRoot(top, error) && ReadObjects(top, error);
}

bool HierarchyReader::ReadRoot(OgawaSlot& top, io::Error& error) {
  OgawaGroup root;
  if (!file_.OpenGroup(file_.Root(), "the root group", root, error)) return false;
  if (root.slotCount < kRootSlots) {
    return error.Set(io::Error::eDamaged, "the root group has %llu slots, %zu are needed",
                     static_cast<Ull>(root.slotCount), kRootSlots);
  }
  OgawaSlot slots[kRootSlots];
  if (!file_.ReadSlots(root, 0, kRootSlots, slots, error)) return false;
  entered_.insert(root.offset);
  top = slots[eTopObject];
  return ReadVersions(slots, error) &&
         file_.ReadBlock(slots[eSamplings], kMostHeaderBytes, "the table of time samplings", block_,
                         error) &&
         ParseTimeSamplings(block_, hierarchy_.timeSamplings, error) &&
         ReadMetadata(slots[eMetadata], slots[eTable], error);
}

bool HierarchyReader::ReadVersions(const OgawaSlot* slots, io::Error& error) {
  std::int32_t versions[2] = {};
  for (const ERootSlot slot : {eLayoutVersion, eLibraryVersion}) {
    if (!file_.ReadBlock(slots[slot], sizeof(std::int32_t), "a version", block_, error))
      return false;
    io::ByteReader in(block_.data(), block_.size());
    versions[slot] = in.I32();
    if (!in.AtEnd()) {
      return error.Set(io::Error::eDamaged, "a version of %zu bytes, 4 are needed", block_.size());
    }
  }
  if (versions[eLayoutVersion] != 0) {
    return error.Set(io::Error::eUnsupported, "layout version %d, 0 is served",
                     versions[eLayoutVersion]);
  }
  return builder_.SetLibraryVersion(versions[eLibraryVersion], error);
}

bool HierarchyReader::ReadMetadata(OgawaSlot archive, OgawaSlot table, io::Error& error) {
  hierarchy_.metadata.emplace_back();
  if (!file_.ReadBlock(table, kMostHeaderBytes, "the metadata table", block_, error) ||
      !ParseMetadataTable(block_, hierarchy_.metadata, error)) {
    return false;
  }
  tableSize_ = hierarchy_.metadata.size();
  if (!file_.ReadBlock(archive, kMostHeaderBytes, "the archive's metadata", block_, error))
    return false;
  hierarchy_.metadata.emplace_back(block_.begin(), block_.end());
  return true;
}

bool HierarchyReader::ReadObjects(OgawaSlot top, io::Error& error) {
  Object topObject;
  topObject.metadata = static_cast<std::uint32_t>(tableSize_);
  pendingObjects_.push_back({top, topObject});
  while (!pendingObjects_.empty()) {
    const PendingObject pending = pendingObjects_.back();
    pendingObjects_.pop_back();
    const auto id = static_cast<ObjectId>(hierarchy_.objects.size());
    hierarchy_.objects.push_back(pending.object);
    hierarchy_.objects[id].firstProperty = static_cast<PropertyId>(hierarchy_.properties.size());
    if (!builder_.Settle(ReadObject(id, pending.slot, error), id, error)) return false;
    hierarchy_.objects[id].propertyCount = static_cast<std::uint32_t>(
        hierarchy_.properties.size() - hierarchy_.objects[id].firstProperty);
  }
  return true;
}

bool HierarchyReader::ReadObject(ObjectId id, OgawaSlot slot, io::Error& error) {
  OgawaGroup group;
  if (!EnterGroup(slot, "an object's group", group, error)) return false;
  if (group.slotCount < 2) {
    return error.Set(io::Error::eDamaged, "an object's group has %llu slots, 2 are needed",
                     static_cast<Ull>(group.slotCount));
  }
  return builder_.Settle(ReadChildren(id, group, error), id, error) &&
         ReadProperties(id, group, error);
}

bool HierarchyReader::ReadChildren(ObjectId id, const OgawaGroup& group, io::Error& error) {
  const std::uint64_t childSlots = group.slotCount - 2;
  if (!ReadHeaderBlock(group, "the block of child headers", error) ||
      !ReadUsedSlots(group, 1, childSlots, error)) {
    return false;
  }
  const std::size_t firstPending = pendingObjects_.size();
  ObjectHeaders headers(block_.data(), block_.size());
  ObjectRecord record;
  std::uint64_t count = 0;
  for (; count < slots_.size() && headers.Next(record); ++count) {
    PendingObject child;
    child.slot = slots_[count];
    child.object.parent = id;
    child.object.depth = hierarchy_.objects[id].depth + 1;
    child.object.metadata = AddMetadata(record.metadata, id);
    if (!builder_.AddName(record.name, id, child.object.name, error)) return false;
    if (child.object.name.length != 0) pendingObjects_.push_back(child);
  }
  NoteCounts(id, "children", count, childSlots, headers.Next(record) || headers.Failed());
  std::reverse(pendingObjects_.begin() + static_cast<std::ptrdiff_t>(firstPending),
               pendingObjects_.end());
  hierarchy_.objects[id].childCount =
      static_cast<std::uint32_t>(pendingObjects_.size() - firstPending);
  return true;
}

bool HierarchyReader::ReadProperties(ObjectId id, const OgawaGroup& group, io::Error& error) {
  OgawaSlot top;
  if (!file_.ReadSlots(group, 0, 1, &top, error) || !ReadCompound(id, kNone, top, error))
    return false;
  while (!pendingProperties_.empty()) {
    const PendingProperty pending = pendingProperties_.back();
    pendingProperties_.pop_back();
    const auto property = static_cast<PropertyId>(hierarchy_.properties.size());
    if (!builder_.Settle(AddProperty(pending, error), id, error, property)) return false;
  }
  return true;
}

bool HierarchyReader::AddProperty(const PendingProperty& pending, io::Error& error) {
  const auto id = static_cast<PropertyId>(hierarchy_.properties.size());
  hierarchy_.properties.push_back(pending.property);
  sampleGroups_.push_back(pending.slot);
  if (pending.property.kind == EPropertyKind::eCompound)
    return ReadCompound(pending.property.object, id, pending.slot, error);
  if (pending.slot.IsGroup() && (pending.property.sampleCount == 0 || !pending.slot.IsEmpty()))
    return true;
  hierarchy_.properties[id].sampleCount = 0;
  return error.Set(io::Error::eDamaged, "a property of %u samples has no list of them",
                   pending.property.sampleCount);
}

bool HierarchyReader::ReadCompound(ObjectId object, PropertyId parent, OgawaSlot slot,
                                   io::Error& error) {
  OgawaGroup group;
  if (slot.IsGroup() && slot.IsEmpty()) return true;
  if (!EnterGroup(slot, "a compound's group", group, error) ||
      !ReadHeaderBlock(group, "the block of property headers", error) ||
      !ReadUsedSlots(group, 0, group.slotCount - 1, error)) {
    return false;
  }
  const std::size_t firstPending = pendingProperties_.size();
  PropertyHeaders headers(block_.data(), block_.size());
  PropertyRecord record;
  std::uint64_t count = 0;
  for (; count < slots_.size() && headers.Next(record); ++count) {
    PendingProperty child = {slots_[count], record.property};
    child.property.object = object;
    child.property.parent = parent;
    const bool sound = builder_.CheckProperty(record.property, record.name, object);
    child.property.metadata = AddMetadata(record.metadata, object);
    if (!builder_.AddName(record.name, object, child.property.name, error)) return false;
    if (sound && child.property.name.length != 0) pendingProperties_.push_back(child);
  }
  NoteCounts(object, "properties", count, group.slotCount - 1,
             headers.Next(record) || headers.Failed());
  std::reverse(pendingProperties_.begin() + static_cast<std::ptrdiff_t>(firstPending),
               pendingProperties_.end());
  return true;
}

bool HierarchyReader::EnterGroup(OgawaSlot slot, const char* what, OgawaGroup& group,
                                 io::Error& error) {
  if (!file_.OpenGroup(slot, what, group, error)) return false;
  if (group.slotCount == 0) return error.Set(io::Error::eDamaged, "%s is empty", what);
  if (!entered_.insert(group.offset).second) {
    return error.Set(io::Error::eDamaged, "%s at %llu is listed twice", what,
                     static_cast<Ull>(group.offset));
  }
  return builder_.Spend(sizeof group.slotCount, groupBudget_, error);
}

// Headers stand in the block of a group's last slot.
bool HierarchyReader::ReadHeaderBlock(const OgawaGroup& group, const char* what, io::Error& error) {
  OgawaSlot slot;
  if (!file_.ReadSlots(group, group.slotCount - 1, 1, &slot, error) ||
      !file_.ReadBlock(slot, kMostHeaderBytes, what, block_, error)) {
    return false;
  }
  return builder_.Spend(block_.size(), headerBudget_, error);
}

// Reads as many of the slots as the block of headers can have records for.
bool HierarchyReader::ReadUsedSlots(const OgawaGroup& group, std::uint64_t first,
                                    std::uint64_t count, io::Error& error) {
  slots_.resize(
      static_cast<std::size_t>(std::min<std::uint64_t>(count, block_.size() / kLeastRecordBytes)));
  return builder_.Spend(slots_.size() * sizeof(OgawaSlot), groupBudget_, error) &&
         file_.ReadSlots(group, first, slots_.size(), slots_.data(), error);
}

std::uint32_t HierarchyReader::AddMetadata(const MetadataReference& reference, ObjectId object) {
  if (reference.number == MetadataReference::kInline) {
    hierarchy_.metadata.emplace_back(reference.text);
    return static_cast<std::uint32_t>(hierarchy_.metadata.size() - 1);
  }
  if (reference.number < tableSize_) return reference.number;
  builder_.NoteProblem(object, "a header refers to metadata that the archive does not have");
  return 0;
}

void HierarchyReader::NoteCounts(ObjectId object, const char* what, std::uint64_t headers,
                                 std::uint64_t slots, bool moreHeaders) {
  if (headers == slots && !moreHeaders) return;
  io::Error error;
  error.Set(io::Error::eDamaged, "%llu slots for %s, %s%llu whole headers", static_cast<Ull>(slots),
            what, moreHeaders ? "more than " : "", static_cast<Ull>(headers));
  builder_.NoteProblem(object, error.text());
}

}  // namespace kelsdk::alembic
