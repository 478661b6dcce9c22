#include "backends/alembic/hierarchy.h"

#include <algorithm>

namespace kelsdk::alembic {
namespace {

// Takes "/name" off the end of a path.
bool TakeLast(std::string_view& path, std::string_view name) {
  if (!path.ends_with(name)) return false;
  path.remove_suffix(name.size());
  if (!path.ends_with('/')) return false;
  path.remove_suffix(1);
  return true;
}

// Takes the path of an object (nothing for the top one) off the end.
bool TakeObject(const Hierarchy& hierarchy, ObjectId object, std::string_view& path) {
  while (hierarchy.objects[object].parent != kNone) {
    if (!TakeLast(path, hierarchy.Name(hierarchy.objects[object].name))) return false;
    object = hierarchy.objects[object].parent;
  }
  return true;
}

// Appends "/name" of each, from the top down, without recursion: the depth is the file's choice.
template <typename Parts>
void AppendReversed(const Hierarchy& hierarchy, const Parts& parts, std::string& path) {
  for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
    path += '/';
    path += hierarchy.Name(*part);
  }
}

void AppendAncestors(const Hierarchy& hierarchy, ObjectId object, std::string& path) {
  std::vector<NameRange> parts;
  for (; hierarchy.objects[object].parent != kNone; object = hierarchy.objects[object].parent) {
    parts.push_back(hierarchy.objects[object].name);
  }
  AppendReversed(hierarchy, parts, path);
}

}  // namespace

std::uint64_t Property::StoredCount() const {
  if (sampleCount == 0) return 0;
  return IsConstant() ? 1 : std::uint64_t{lastChanged} - firstChanged + 2;
}

std::uint64_t Property::StoredIndex(std::uint32_t sample) const {
  if (IsConstant() || sample < firstChanged) return 0;
  return std::uint64_t{std::min(sample, lastChanged)} - firstChanged + 1;
}

void Property::StoredRun(std::uint32_t sample, std::uint32_t& first, std::uint32_t& last) const {
  const bool constant = IsConstant();
  first = !constant && sample >= firstChanged ? std::min(sample, lastChanged) : 0;
  last = constant || sample >= lastChanged ? sampleCount - 1 : sample;
  if (!constant && sample < firstChanged) last = firstChanged - 1;
}

void Hierarchy::AppendObjectPath(ObjectId object, std::string& path) const {
  if (objects[object].parent == kNone) {
    path += '/';
  } else {
    AppendAncestors(*this, object, path);
  }
}

void Hierarchy::AppendPropertyPath(PropertyId property, std::string& path) const {
  AppendAncestors(*this, properties[property].object, path);
  std::vector<NameRange> parts;
  for (; property != kNone; property = properties[property].parent) {
    parts.push_back(properties[property].name);
  }
  AppendReversed(*this, parts, path);
}

std::string Hierarchy::ObjectPath(ObjectId object) const {
  std::string path;
  AppendObjectPath(object, path);
  return path;
}

std::string Hierarchy::PropertyPath(PropertyId property) const {
  std::string path;
  AppendPropertyPath(property, path);
  return path;
}

bool Hierarchy::ObjectPathIs(ObjectId object, std::string_view path) const {
  if (objects[object].parent == kNone) return path == "/";
  return TakeObject(*this, object, path) && path.empty();
}

bool Hierarchy::PropertyPathIs(PropertyId property, std::string_view path) const {
  const ObjectId object = properties[property].object;
  for (; property != kNone; property = properties[property].parent) {
    if (!TakeLast(path, Name(properties[property].name))) return false;
  }
  return TakeObject(*this, object, path) && path.empty();
}

bool TakeMetadataPair(std::string_view& metadata, std::string_view& key, std::string_view& value) {
  const std::string_view pair = metadata.substr(0, metadata.find(';'));
  metadata.remove_prefix(std::min(pair.size() + 1, metadata.size()));
  const std::size_t equals = pair.find('=');
  if (equals == std::string_view::npos) return false;
  key = pair.substr(0, equals);
  value = pair.substr(equals + 1);
  return true;
}

std::string_view MetadataValue(std::string_view metadata, std::string_view key) {
  std::string_view pairKey;
  std::string_view value;
  while (TakeMetadataPair(metadata, pairKey, value)) {
    if (pairKey == key) return value;
  }
  return {};
}

}  // namespace kelsdk::alembic
