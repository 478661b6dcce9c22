#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "backends/alembic/hdf5_file.h"
#include "backends/alembic/hierarchy_builder.h"

namespace kelsdk::alembic {

/// Where a property's samples are: sample 0 in the group of its compound, a data set of its own for
/// an array and an attribute for a scalar; all others in a group of their own.
struct Hdf5Samples {
  std::uint64_t compound = Hdf5Link::kNowhere;
  std::uint64_t first = Hdf5Link::kNowhere;  ///< data set
  std::uint64_t rest = Hdf5Link::kNowhere;   ///< group
};

/// Reads the hierarchy of an HDF5 file: groups and headers once, no sample. Damage costs what it
/// costs in the other container (HierarchyReader).
class Hdf5HierarchyReader {
 public:
  /// `samples` gets one entry for each property.
  Hdf5HierarchyReader(Hdf5File& file, Hierarchy& hierarchy, std::vector<Hdf5Samples>& samples);

  /// Within an Hdf5Turn. False for a damaged root and for failures of the file. Throws
  /// std::bad_alloc.
  bool Read(io::Error& error);

 private:
  struct PendingObject {
    std::uint64_t address;
    Object object;
  };
  struct PendingProperty {
    std::uint64_t address;  // of a compound's group
    Hdf5Samples samples;
    Property property;
  };
  /// What a compound's group holds.
  struct Compound {
    Hdf5Handle group;
    std::uint64_t address;
    std::vector<std::string> attributes;
    std::unordered_map<std::string, std::uint64_t> links;
  };

  bool ReadRoot(std::uint64_t& top, io::Error& error);
  bool ReadVersions(hid_t root, io::Error& error);
  bool ReadTimeSamplings(hid_t root, io::Error& error);
  bool ReadObject(ObjectId id, std::uint64_t address, io::Error& error);
  bool ReadProperties(ObjectId id, std::uint64_t address, io::Error& error);
  bool ReadCompound(ObjectId object, PropertyId parent, std::uint64_t address, io::Error& error);
  bool ReadProperty(const Compound& compound, const std::string& name, PendingProperty& pending,
                    io::Error& error);
  bool AddProperty(const PendingProperty& pending, io::Error& error);

  bool EnterGroup(std::uint64_t address, Hdf5Handle& group, io::Error& error);
  bool ListLinks(hid_t group, ObjectId object, std::vector<Hdf5Link>& links, io::Error& error);
  bool ReadMetadata(hid_t group, const std::string& name, std::uint32_t& metadata,
                    io::Error& error);

  Hdf5File& file_;
  Hierarchy& hierarchy_;
  HierarchyBuilder builder_;
  std::vector<Hdf5Samples>& samples_;
  std::vector<PendingObject> pendingObjects_;
  std::vector<PendingProperty> pendingProperties_;
  std::unordered_set<std::uint64_t> entered_;
  std::unordered_map<std::string, std::uint32_t> metadata_;  // numbers of those read so far
  std::vector<std::uint8_t> bytes_;                          // of the attribute being read
  std::uint64_t budget_;  // bytes of links and attributes that may still be read
};

}  // namespace kelsdk::alembic
