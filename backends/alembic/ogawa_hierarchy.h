#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "backends/alembic/hierarchy_builder.h"
#include "backends/alembic/ogawa_file.h"
#include "backends/alembic/ogawa_headers.h"

namespace kelsdk::alembic {

/// Reads the hierarchy of an Ogawa file: every object and property header once, no sample.
///
/// What is damaged below the root is noted in Hierarchy::problems and left out; the rest stays. A
/// file whose groups hold one another, or unfold into more than the file has room for, costs no
/// more than its size: no group is entered twice, and all that is read is counted.
class HierarchyReader {
 public:
  /// `sampleGroups` gets one slot for each property: where its samples are listed.
  HierarchyReader(OgawaFile& file, Hierarchy& hierarchy, std::vector<OgawaSlot>& sampleGroups);

  /// False for a damaged root and for failures of the file. Throws std::bad_alloc.
  bool Read(io::Error& error);

 private:
  struct PendingObject {
    OgawaSlot slot;
    Object object;
  };
  struct PendingProperty {
    OgawaSlot slot;
    Property property;
  };

  bool ReadRoot(OgawaSlot& top, io::Error& error);
  bool ReadVersions(const OgawaSlot* slots, io::Error& error);
  bool ReadMetadata(OgawaSlot archive, OgawaSlot table, io::Error& error);
  bool ReadObjects(OgawaSlot top, io::Error& error);
  bool ReadObject(ObjectId id, OgawaSlot slot, io::Error& error);
  bool ReadChildren(ObjectId id, const OgawaGroup& group, io::Error& error);
  bool ReadProperties(ObjectId id, const OgawaGroup& group, io::Error& error);
  bool ReadCompound(ObjectId object, PropertyId parent, OgawaSlot slot, io::Error& error);
  bool AddProperty(const PendingProperty& pending, io::Error& error);

  bool EnterGroup(OgawaSlot slot, const char* what, OgawaGroup& group, io::Error& error);
  bool ReadHeaderBlock(const OgawaGroup& group, const char* what, io::Error& error);
  bool ReadUsedSlots(const OgawaGroup& group, std::uint64_t first, std::uint64_t count,
                     io::Error& error);
  std::uint32_t AddMetadata(const MetadataReference& reference, ObjectId object);
  void NoteCounts(ObjectId object, const char* what, std::uint64_t headers, std::uint64_t slots,
                  bool moreHeaders);

  OgawaFile& file_;
  Hierarchy& hierarchy_;
  HierarchyBuilder builder_;
  std::vector<OgawaSlot>& sampleGroups_;
  std::vector<PendingObject> pendingObjects_;
  std::vector<PendingProperty> pendingProperties_;
  std::vector<std::uint8_t> block_;  // the header block being read
  std::vector<OgawaSlot> slots_;     // the slots that belong to it
  std::unordered_set<std::uint64_t> entered_;
  std::uint64_t groupBudget_;   // bytes of groups that may still be read
  std::uint64_t headerBudget_;  // bytes of header blocks that may still be read
  std::size_t tableSize_ = 0;   // metadata strings that headers may refer to by number
};

}  // namespace kelsdk::alembic
