#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "backends/alembic/plain_type.h"
#include "backends/alembic/time_sampling.h"

namespace kelsdk::alembic {

/// Numbers of objects and properties, in the order of the hierarchy: parents before what they hold.
using ObjectId = std::uint32_t;
using PropertyId = std::uint32_t;
inline constexpr std::uint32_t kNone = 0xffffffff;

/// A run of characters in Hierarchy::names.
struct NameRange {
  std::uint32_t offset = 0;
  std::uint32_t length = 0;
};

struct Object {
  NameRange name;
  ObjectId parent = kNone;  ///< kNone for the top object
  std::uint32_t depth = 0;  ///< 0 for the top object
  std::uint32_t childCount = 0;
  std::uint32_t metadata = 0;  ///< in Hierarchy::metadata
  PropertyId firstProperty = 0;
  std::uint32_t propertyCount = 0;  ///< nested ones included
};

enum class EPropertyKind : std::uint8_t { eCompound, eScalar, eArray };

struct Property {
  NameRange name;
  ObjectId object = 0;
  PropertyId parent = kNone;   ///< the compound that holds it; kNone directly below the object
  std::uint32_t metadata = 0;  ///< in Hierarchy::metadata
  std::uint32_t sampleCount = 0;
  std::uint32_t firstChanged = 0;  ///< lowest sample that differs from sample 0; 0 when none does
  std::uint32_t lastChanged = 0;   ///< highest sample that differs from the one before; or 0
  std::uint32_t timeSampling = 0;  ///< in Hierarchy::timeSamplings
  EPropertyKind kind = EPropertyKind::eCompound;
  EPlainType type = EPlainType::eBool;
  std::uint8_t extent = 1;  ///< values per element
  bool scalarLike = false;  ///< an array that promises one element in every sample

  bool IsConstant() const { return lastChanged == 0; }
  std::size_t ElementSize() const { return extent * PlainTypeSize(type); }

  /// How many different samples the archive keeps, and which of them sample `sample` is.
  std::uint64_t StoredCount() const;
  std::uint64_t StoredIndex(std::uint32_t sample) const;
  /// The samples around one that share its stored one: the first and the last of them.
  void StoredRun(std::uint32_t sample, std::uint32_t& first, std::uint32_t& last) const;
};

/// All that an archive says without its samples. Names are kept once, in one run; paths are made
/// when asked for, since those of a deep archive would take far more room than its file.
struct Hierarchy {
  std::int32_t libraryVersion = 0;  ///< xxyyzz in decimal
  std::vector<TimeSampling> timeSamplings;
  std::vector<std::string> metadata;  ///< "key=value;..."; 0 is the empty one
  std::vector<Object> objects;        ///< the first is the top object; its metadata the archive's
  std::vector<Property> properties;   ///< those of an object lie together
  std::string names;

  /// What was found damaged and left out, in words; at most kProblemsKept are kept.
  std::vector<std::string> problems;
  std::uint64_t problemCount = 0;
  static constexpr std::size_t kProblemsKept = 100;

  std::string_view Name(NameRange range) const {
    return std::string_view(names).substr(range.offset, range.length);
  }

  /// Full paths: "/", "/body/bodyShape", "/body/bodyShape/.geom/P". Throw std::bad_alloc.
  std::string ObjectPath(ObjectId object) const;
  std::string PropertyPath(PropertyId property) const;
  void AppendObjectPath(ObjectId object, std::string& path) const;
  void AppendPropertyPath(PropertyId property, std::string& path) const;

  bool ObjectPathIs(ObjectId object, std::string_view path) const;
  bool PropertyPathIs(PropertyId property, std::string_view path) const;
};

/// The value of a key in a metadata string; empty when it has none. The first of equal keys counts,
/// and a part without '=' ends the string.
std::string_view MetadataValue(std::string_view metadata, std::string_view key);

/// Takes the next pair off the front of a metadata string; false at its end.
bool TakeMetadataPair(std::string_view& metadata, std::string_view& key, std::string_view& value);

}  // namespace kelsdk::alembic
