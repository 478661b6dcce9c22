#include "backends/alembic/hierarchy_builder.h"

#include <limits>
#include <string>

namespace kelsdk::alembic {
namespace {

constexpr std::int32_t kOldestLibrary = 9999;

bool CheckName(std::string_view name, io::Error& error) {
  if (name.empty()) return error.Set(io::Error::eDamaged, "a name is empty");
  if (name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos)
    return true;
  return error.Set(io::Error::eDamaged, "a name of %zu characters holds '/' or a zero byte",
                   name.size());
}

bool HasSense(const Property& property, std::size_t samplingCount, io::Error& error) {
  if (property.kind == EPropertyKind::eCompound) return true;
  if (static_cast<unsigned>(property.type) >= kPlainTypeCount) {
    return error.Set(io::Error::eDamaged, "plain type %u, types below %u are known",
                     static_cast<unsigned>(property.type), kPlainTypeCount);
  }
  if (property.extent == 0) return error.Set(io::Error::eDamaged, "elements of 0 values");
  if (property.timeSampling >= samplingCount) {
    return error.Set(io::Error::eDamaged, "time sampling %u, the archive has %zu",
                     property.timeSampling, samplingCount);
  }
  const bool none = property.firstChanged == 0 && property.lastChanged == 0;
  const bool ordered = property.firstChanged >= 1 &&
                       property.firstChanged <= property.lastChanged &&
                       property.lastChanged < property.sampleCount;
  if (none || ordered) return true;
  return error.Set(io::Error::eDamaged, "changes from sample %u to %u of %u", property.firstChanged,
                   property.lastChanged, property.sampleCount);
}

}  // namespace

bool HierarchyBuilder::SetLibraryVersion(std::int32_t version, io::Error& error) {
  hierarchy_.libraryVersion = version;
  if (version >= kOldestLibrary) return true;
  return error.Set(io::Error::eUnsupported,
                   "written by library version %d, %d is the oldest served", version,
                   kOldestLibrary);
}

bool HierarchyBuilder::CheckProperty(const Property& property, std::string_view name,
                                     ObjectId object) {
  io::Error error;
  if (HasSense(property, hierarchy_.timeSamplings.size(), error)) return true;
  NoteProblem(object, ("property \"" + std::string(name) + "\": " + error.text()).c_str());
  return false;
}

bool HierarchyBuilder::Spend(std::uint64_t bytes, std::uint64_t& budget, io::Error& error) {
  if (bytes <= budget) {
    budget -= bytes;
    return true;
  }
  exhausted_ = true;
  return error.Set(io::Error::eDamaged, "the headers unfold into more than the file can hold");
}

bool HierarchyBuilder::AddName(std::string_view name, ObjectId object, NameRange& range,
                               io::Error& error) {
  range = {};
  if (!CheckName(name, error)) return Settle(false, object, error);
  if (name.size() > std::numeric_limits<std::uint32_t>::max() - hierarchy_.names.size())
    return error.Set(io::Error::eUnsupported, "the names take more than 4 GB");
  range = {static_cast<std::uint32_t>(hierarchy_.names.size()),
           static_cast<std::uint32_t>(name.size())};
  hierarchy_.names += name;
  return true;
}

bool HierarchyBuilder::Settle(bool done, ObjectId object, io::Error& error, PropertyId property) {
  if (done) return true;
  if (error.kind() != io::Error::eDamaged || exhausted_) return false;
  NoteProblem(object, error.text(), property);
  error.Clear();
  return true;
}

void HierarchyBuilder::NoteProblem(ObjectId object, const char* text, PropertyId property) {
  if (++hierarchy_.problemCount > Hierarchy::kProblemsKept) return;
  const std::string path =
      property == kNone ? hierarchy_.ObjectPath(object) : hierarchy_.PropertyPath(property);
  hierarchy_.problems.push_back(path + ": " + text);
}

}  // namespace kelsdk::alembic
