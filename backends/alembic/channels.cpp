#include "backends/alembic/channels.h"

#include <algorithm>
#include <limits>
#include <tuple>
#include <utility>

#include "backends/io/checked.h"

namespace kelsdk::alembic {
namespace {

// FNV-1a, 64 bits: the hash of a path grows name by name.
constexpr std::uint64_t kHashStart = 0xcbf29ce484222325;

std::uint64_t ExtendHash(std::uint64_t hash, std::string_view text) {
  for (const char character : text) {
    hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001b3;
  }
  return hash;
}

std::uint64_t ExtendHashByName(std::uint64_t hash, std::string_view name) {
  return ExtendHash(ExtendHash(hash, "/"), name);
}

bool IsInstance(const Hierarchy& hierarchy, ObjectId object) {
  const std::string& metadata = hierarchy.metadata[hierarchy.objects[object].metadata];
  return MetadataValue(metadata, "isInstance") == "1";
}

// The elements in so many bytes of values.
bool CountOf(std::uint64_t bytes, const Property& property, std::uint32_t& elements,
             io::Error& error) {
  const std::uint64_t count = bytes / property.ElementSize();
  if (!io::Fits<std::uint32_t>(count)) {
    return error.Set(io::Error::eUnsupported, "a sample of %llu elements, more than 32 bits count",
                     static_cast<unsigned long long>(count));
  }
  elements = static_cast<std::uint32_t>(count);
  return true;
}

}  // namespace

ChannelList::ChannelList(std::unique_ptr<Archive> archive) : archive_(std::move(archive)) {
  AddChannels();
}

void ChannelList::AddChannels() {
  const Hierarchy& hierarchy = archive_->hierarchy();
  const auto count = static_cast<PropertyId>(hierarchy.properties.size());
  std::vector<PropertyId> others;
  const auto add = [&](PropertyId id) {
    const Property& property = hierarchy.properties[id];
    const TimeSampling& sampling = hierarchy.timeSamplings[property.timeSampling];
    channels_.push_back(
        {.property = id, .sampleCount = sampling.TimedSamples(property.sampleCount)});
  };
  for (PropertyId id = 0; id < count; ++id) {
    if (!IsChannel(id)) continue;
    if (IsPositions(id))
      add(id);
    else
      others.push_back(id);
  }
  positionCount_ = Count();
  for (const PropertyId id : others) add(id);
}

bool ChannelList::IsChannel(PropertyId id) const {
  const Hierarchy& hierarchy = archive_->hierarchy();
  const Property& property = hierarchy.properties[id];
  if (property.kind == EPropertyKind::eCompound || !IsNumeric(property.type)) return false;
  const TimeSampling& sampling = hierarchy.timeSamplings[property.timeSampling];
  if (sampling.TimedSamples(property.sampleCount) == 0) return false;
  return !IsInstance(hierarchy, property.object);
}

// Positions are the P of a schema's compound, which stands directly below its object.
bool ChannelList::IsPositions(PropertyId id) const {
  const Hierarchy& hierarchy = archive_->hierarchy();
  const Property& property = hierarchy.properties[id];
  if (property.kind != EPropertyKind::eArray || property.extent != 3 ||
      property.type < EPlainType::eFloat16 || property.parent == kNone ||
      hierarchy.Name(property.name) != "P") {
    return false;
  }
  const Property& compound = hierarchy.properties[property.parent];
  if (compound.parent != kNone) return false;
  // An archive that only changes another one may leave out the schema.
  return hierarchy.Name(compound.name) == ".geom" ||
         !MetadataValue(hierarchy.metadata[compound.metadata], "schema").empty();
}

bool ChannelList::Find(std::string_view name, std::uint32_t& channel) {
  if (names_.empty()) HashNames();
  const std::uint64_t hash = ExtendHash(kHashStart, name);
  auto entry = std::lower_bound(names_.begin(), names_.end(), hash,
                                [](const HashedName& a, std::uint64_t b) { return a.hash < b; });
  for (; entry != names_.end() && entry->hash == hash; ++entry) {
    if (!HasName(*entry, name)) continue;
    channel = entry->channel;
    return true;
  }
  return false;
}

bool ChannelList::HasName(const HashedName& entry, std::string_view name) const {
  const Hierarchy& hierarchy = archive_->hierarchy();
  const PropertyId property = channels_[entry.channel].property;
  if (entry.ofObject) return hierarchy.ObjectPathIs(hierarchy.properties[property].object, name);
  return hierarchy.PropertyPathIs(property, name);
}

void ChannelList::HashNames() {
  const Hierarchy& hierarchy = archive_->hierarchy();
  std::vector<std::uint64_t> objects(hierarchy.objects.size(), kHashStart);
  for (std::size_t i = 1; i < objects.size(); ++i) {
    const Object& object = hierarchy.objects[i];
    objects[i] = ExtendHashByName(objects[object.parent], hierarchy.Name(object.name));
  }
  std::vector<std::uint64_t> properties(hierarchy.properties.size());
  for (std::size_t i = 0; i < properties.size(); ++i) {
    const Property& property = hierarchy.properties[i];
    const std::uint64_t above =
        property.parent == kNone ? objects[property.object] : properties[property.parent];
    properties[i] = ExtendHashByName(above, hierarchy.Name(property.name));
  }
  std::vector<HashedName> names;
  names.reserve(channels_.size() + positionCount_);
  for (std::uint32_t i = 0; i < Count(); ++i) {
    names.push_back({properties[channels_[i].property], i, false});
  }
  for (std::uint32_t i = 0; i < positionCount_; ++i) {
    const ObjectId object = PropertyOf(i).object;
    const bool top = hierarchy.objects[object].parent == kNone;
    names.push_back({top ? ExtendHash(kHashStart, "/") : objects[object], i, true});
  }
  std::sort(names.begin(), names.end(), [](const HashedName& a, const HashedName& b) {
    return std::tie(a.hash, a.ofObject, a.channel) < std::tie(b.hash, b.ofObject, b.channel);
  });
  names_ = std::move(names);
}

std::string ChannelList::Name(std::uint32_t channel) const {
  return archive_->hierarchy().PropertyPath(channels_[channel].property);
}

const Property& ChannelList::PropertyOf(std::uint32_t channel) const {
  return archive_->hierarchy().properties[channels_[channel].property];
}

const TimeSampling& ChannelList::SamplingOf(std::uint32_t channel) const {
  return archive_->hierarchy().timeSamplings[PropertyOf(channel).timeSampling];
}

double ChannelList::Start(std::uint32_t channel) const {
  return SamplingOf(channel).TimeOf(0);
}

double ChannelList::End(std::uint32_t channel) const {
  return SamplingOf(channel).TimeOf(SampleCount(channel) - 1);
}

bool ChannelList::BufferLength(std::uint32_t channel, std::uint32_t& elements, io::Error& error) {
  Channel& entry = channels_[channel];
  const Property& property = PropertyOf(channel);
  if (!entry.lengthKnown) {
    std::uint64_t bytes = property.ElementSize();
    if (property.kind == EPropertyKind::eArray &&
        !archive_->LargestSample(entry.property, bytes, error)) {
      return false;
    }
    if (!CountOf(bytes, property, entry.bufferLength, error)) return false;
    entry.lengthKnown = true;
  }
  elements = entry.bufferLength;
  return true;
}

bool ChannelList::SampleLength(std::uint32_t channel, std::uint32_t sample, std::uint32_t& elements,
                               io::Error& error) {
  const Property& property = PropertyOf(channel);
  std::uint64_t bytes = 0;
  if (!archive_->ValueBytes(channels_[channel].property, property.StoredIndex(sample), bytes,
                            error)) {
    return false;
  }
  return CountOf(bytes, property, elements, error);
}

bool ChannelList::ReadSample(std::uint32_t channel, std::uint32_t sample, void* values,
                             std::uint32_t& elements, io::Error& error) {
  const Property& property = PropertyOf(channel);
  const bool halves = property.type == EPlainType::eFloat16;
  const std::uint64_t room = std::uint64_t{elements} * property.ElementSize();
  // Halves go to the end of the room of the floats that they become.
  auto* stored = static_cast<std::uint8_t*>(values) + (halves ? room : 0);
  std::uint64_t bytes = 0;
  if (!archive_->ReadValues(channels_[channel].property, property.StoredIndex(sample), stored, room,
                            bytes, error)) {
    return false;
  }
  if (bytes > room) {
    return error.Set(io::Error::eRefused, "a sample of %llu bytes, room for %llu",
                     static_cast<unsigned long long>(bytes), static_cast<unsigned long long>(room));
  }
  if (halves) {
    ConvertToFloats(property.type, stored, static_cast<std::size_t>(bytes / sizeof(std::uint16_t)),
                    static_cast<float*>(values));
  }
  return CountOf(bytes, property, elements, error);
}

bool ChannelList::SampleIdentity(std::uint32_t channel, std::uint32_t sample,
                                 std::uint64_t& identity, io::Error& error) {
  return archive_->SampleIdentity(channels_[channel].property,
                                  PropertyOf(channel).StoredIndex(sample), identity, error);
}

bool ChannelList::Read(std::uint32_t channel, double seconds, float* buffer, std::uint32_t count,
                       io::Error& error) {
  const Channel& entry = channels_[channel];
  const Property& property = PropertyOf(channel);
  const std::uint32_t sample = SamplingOf(channel).FloorSample(seconds, entry.sampleCount);
  const std::uint64_t valueCount = std::uint64_t{count} * property.extent;
  std::uint64_t valuesRead = 0;
  if (!ReadConverted(property, entry.property, property.StoredIndex(sample), buffer, valueCount,
                     valuesRead, error)) {
    return false;
  }
  std::fill(buffer + valuesRead, buffer + valueCount, std::numeric_limits<float>::quiet_NaN());
  return true;
}

bool ChannelList::ReadConverted(const Property& property, PropertyId id, std::uint64_t stored,
                                float* buffer, std::uint64_t valueCount, std::uint64_t& valuesRead,
                                io::Error& error) {
  const std::size_t size = PlainTypeSize(property.type);
  // Values that are no larger than floats go to the end of the buffer, where the conversion from
  // its beginning overtakes none of them.
  std::uint64_t room = valueCount * size;
  auto* values = reinterpret_cast<std::uint8_t*>(buffer + valueCount) - room;
  if (size > sizeof(float)) {
    room = std::min(room, archive_->FileSize() / size * size);
    if (wideValues_.size() < room) wideValues_.resize(static_cast<std::size_t>(room));
    values = wideValues_.data();
  }
  std::uint64_t bytes = 0;
  if (!archive_->ReadValues(id, stored, values, room, bytes, error)) return false;
  valuesRead = std::min(bytes, room) / size;
  if (property.type != EPlainType::eFloat32) {
    ConvertToFloats(property.type, values, static_cast<std::size_t>(valuesRead), buffer);
  }
  return true;
}

}  // namespace kelsdk::alembic
