#pragma once

#include <cstdint>
#include <string_view>

#include "backends/alembic/hierarchy.h"
#include "backends/io/error.h"

namespace kelsdk::alembic {

/// What reading a hierarchy has in common, whatever the container: names, and damage that is noted
/// in Hierarchy::problems and left out while the rest stays.
class HierarchyBuilder {
 public:
  /// `hierarchy` outlives the builder.
  explicit HierarchyBuilder(Hierarchy& hierarchy) : hierarchy_(hierarchy) {}

  bool SetLibraryVersion(std::int32_t version, io::Error& error);

  /// A name that no path can hold comes back with length 0, and is noted.
  bool AddName(std::string_view name, ObjectId object, NameRange& range, io::Error& error);

  /// Damage is noted and passed over; other failures end the reading.
  bool Settle(bool done, ObjectId object, io::Error& error, PropertyId property = kNone);
  void NoteProblem(ObjectId object, const char* text, PropertyId property = kNone);

  /// Takes from what the file has room for; once that is used up, Settle passes nothing over.
  bool Spend(std::uint64_t bytes, std::uint64_t& budget, io::Error& error);

  /// False, with the reason, when the numbers of a property contradict each other; noted.
  bool CheckProperty(const Property& property, std::string_view name, ObjectId object);

 private:
  Hierarchy& hierarchy_;
  bool exhausted_ = false;
};

}  // namespace kelsdk::alembic
