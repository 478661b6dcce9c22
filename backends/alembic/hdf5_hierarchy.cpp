#include "backends/alembic/hdf5_hierarchy.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "backends/io/endian.h"

namespace kelsdk::alembic {
namespace {

constexpr std::int32_t kLayoutVersion = -8;
constexpr std::uint32_t kAcyclic = 0xffffffff;  // for the times per cycle
constexpr std::string_view kInfo = ".info";

// The first word of a property's header. Behind it stand, each or not: the number of samples; the
// first and last changed one; the time sampling.
constexpr std::uint32_t kKindMask = 0x3;
constexpr std::uint32_t kCompound = 0;
constexpr std::uint32_t kScalar = 1;
constexpr std::uint32_t kScalarLikeArray = 3;
constexpr unsigned kTypeShift = 2;  // 4 bits
constexpr std::uint32_t kHasTimeSampling = 0x40;
constexpr std::uint32_t kStoresEverySample = 0x80;
constexpr unsigned kExtentShift = 8;  // 8 bits

template <typename T>
std::vector<T> Numbers(const std::vector<std::uint8_t>& bytes) {
  std::vector<T> numbers(bytes.size() / sizeof(T));
  for (std::size_t i = 0; i < numbers.size(); ++i)
    numbers[i] = io::LoadLittle<T>(bytes.data() + i * sizeof(T));
  return numbers;
}

void ReadChanged(const std::vector<std::uint32_t>& words, std::size_t count, Property& property) {
  property.sampleCount = words[1];
  if (count == 3) {
    property.firstChanged = words[2];
    property.lastChanged = words[3];
  } else if ((words[0] & kStoresEverySample) != 0 && property.sampleCount > 1) {
    property.firstChanged = 1;
    property.lastChanged = property.sampleCount - 1;
  }
}

// All of a header but metadata and name. Without a number of samples there is one or none.
bool ParseProperty(const std::vector<std::uint32_t>& words, bool hasFirst, Property& property,
                   io::Error& error) {
  if (words.empty()) return error.Set(io::Error::eDamaged, "an empty header");
  const std::uint32_t info = words[0];
  const std::uint32_t kind = info & kKindMask;
  property = {};
  if (kind == kCompound) return true;
  property.kind = kind == kScalar ? EPropertyKind::eScalar : EPropertyKind::eArray;
  property.scalarLike = kind == kScalarLikeArray;
  property.type = static_cast<EPlainType>(info >> kTypeShift & 0xf);
  property.extent = static_cast<std::uint8_t>(info >> kExtentShift & 0xff);
  const std::size_t samplings = (info & kHasTimeSampling) != 0 ? 1 : 0;
  const std::size_t numbers = words.size() - 1;  // behind the first word
  if (numbers < samplings || numbers - samplings == 2 || numbers - samplings > 3)
    return error.Set(io::Error::eDamaged, "a header of %zu words", words.size());
  if (samplings != 0) property.timeSampling = words.back();
  if (numbers == samplings) {
    property.sampleCount = hasFirst ? 1 : 0;
  } else {
    ReadChanged(words, numbers - samplings, property);
  }
  return true;
}

}  // namespace

Hdf5HierarchyReader::Hdf5HierarchyReader(Hdf5File& file, Hierarchy& hierarchy,
                                         std::vector<Hdf5Samples>& samples)
    : file_(file),
      hierarchy_(hierarchy),
      builder_(hierarchy),
      samples_(samples),
      budget_(file.Size()) {}

bool Hdf5HierarchyReader::Read(io::Error& error) {
  std::uint64_t address = 0;
  hierarchy_.metadata.emplace_back();
  metadata_.emplace("", 0);
  if (!ReadRoot(address, error)) return false;
  pendingObjects_.push_back({address, {}});
  while (!pendingObjects_.empty()) {
    const PendingObject pending = pendingObjects_.back();
    pendingObjects_.pop_back();
    const auto id = static_cast<ObjectId>(hierarchy_.objects.size());
    hierarchy_.objects.push_back(pending.object);
    hierarchy_.objects[id].firstProperty = static_cast<PropertyId>(hierarchy_.properties.size());
    if (!builder_.Settle(ReadObject(id, pending.address, error), id, error)) return false;
    hierarchy_.objects[id].propertyCount = static_cast<std::uint32_t>(
        hierarchy_.properties.size() - hierarchy_.objects[id].firstProperty);
  }
  return true;
}

bool Hdf5HierarchyReader::ReadRoot(std::uint64_t& top, io::Error& error) {
  Hdf5Handle root;
  std::vector<Hdf5Link> links;
  std::uint64_t bytes = 0;
  if (!file_.OpenRoot(root, error) || !ReadVersions(root.Get(), error) ||
      !ReadTimeSamplings(root.Get(), error) ||
      !file_.ListLinks(root.Get(), budget_, links, bytes, error)) {
    return false;
  }
  const auto found = std::find_if(links.begin(), links.end(),
                                  [](const Hdf5Link& link) { return link.name == "ABC"; });
  if (found == links.end() || found->address == Hdf5Link::kElsewhere)
    return error.Set(io::Error::eDamaged, "not an Alembic archive: no group ABC");
  top = found->address;
  return true;
}

bool Hdf5HierarchyReader::ReadVersions(hid_t root, io::Error& error) {
  std::int32_t versions[2] = {};
  const char* const names[] = {"abc_version", "abc_release_version"};
  for (const int i : {0, 1}) {
    if (!Hdf5File::HasAttribute(root, names[i]))
      return error.Set(io::Error::eDamaged, "not an Alembic archive: no %s", names[i]);
    if (!file_.ReadAttribute(root, names[i], EPlainType::eInt32, bytes_, error)) return false;
    const auto numbers = Numbers<std::int32_t>(bytes_);
    if (numbers.size() != 1)
      return error.Set(io::Error::eDamaged, "%zu versions, 1 is needed", numbers.size());
    versions[i] = numbers[0];
  }
  if (versions[0] != kLayoutVersion) {
    return error.Set(io::Error::eUnsupported, "layout version %d, %d is served", versions[0],
                     kLayoutVersion);
  }
  return builder_.SetLibraryVersion(versions[1], error);
}

// Sampling 0 is not stored: one sample a second, from 0 on.
bool Hdf5HierarchyReader::ReadTimeSamplings(hid_t root, io::Error& error) {
  std::vector<std::int64_t> most;
  if (Hdf5File::HasAttribute(root, "abc_max_samples")) {
    if (!file_.ReadAttribute(root, "abc_max_samples", EPlainType::eInt64, bytes_, error))
      return false;
    most = Numbers<std::int64_t>(bytes_);
  }
  const auto mostSamples = [&](std::size_t sampling) {
    const std::int64_t number = sampling < most.size() ? most[sampling] : 0;
    return static_cast<std::uint32_t>(
        std::clamp<std::int64_t>(number, 0, std::numeric_limits<std::uint32_t>::max()));
  };
  hierarchy_.timeSamplings.push_back(TimeSampling::FromStored(1, {0.0}, mostSamples(0)));
  for (std::size_t i = 1;; ++i) {
    const std::string number = std::to_string(i);
    if (!Hdf5File::HasAttribute(root, number + ".time")) return true;
    double period = 1;
    if (Hdf5File::HasAttribute(root, number + ".ttpc")) {
      if (!file_.ReadAttribute(root, number + ".ttpc", EPlainType::eFloat64, bytes_, error))
        return false;
      const auto periods = Numbers<double>(bytes_);
      period = periods.size() == 1 ? periods[0] : 0;
    }
    std::uint32_t perCycle = 1;
    if (Hdf5File::HasAttribute(root, number + ".tspc")) {
      if (!file_.ReadAttribute(root, number + ".tspc", EPlainType::eUint32, bytes_, error))
        return false;
      const auto counts = Numbers<std::uint32_t>(bytes_);
      perCycle = counts.size() == 1 ? counts[0] : 0;
    }
    if (!file_.ReadAttribute(root, number + ".time", EPlainType::eFloat64, bytes_, error))
      return false;
    auto times = Numbers<double>(bytes_);
    if (perCycle == kAcyclic) {
      period = TimeSampling::kAcyclicPeriod;
    } else if (times.size() != perCycle) {
      return error.Set(io::Error::eDamaged, "time sampling %zu: %zu times, %u per cycle", i,
                       times.size(), perCycle);
    }
    hierarchy_.timeSamplings.push_back(
        TimeSampling::FromStored(period, std::move(times), mostSamples(i)));
  }
}

bool Hdf5HierarchyReader::ReadObject(ObjectId id, std::uint64_t address, io::Error& error) {
  Hdf5Handle group;
  std::vector<Hdf5Link> links;
  if (!EnterGroup(address, group, error)) return false;
  std::uint32_t metadata = 0;
  if (!builder_.Settle(ReadMetadata(group.Get(), ".prop.meta", metadata, error), id, error) ||
      !ListLinks(group.Get(), id, links, error)) {
    return false;
  }
  hierarchy_.objects[id].metadata = metadata;
  std::uint64_t properties = Hdf5Link::kNowhere;
  std::vector<PendingObject> children;
  for (const Hdf5Link& link : links) {
    if (link.name == ".prop") {
      properties = link.address;
      continue;
    }
    PendingObject child = {link.address, {}};
    child.object.parent = id;
    child.object.depth = hierarchy_.objects[id].depth + 1;
    if (!builder_.AddName(link.name, id, child.object.name, error)) return false;
    if (child.object.name.length != 0) children.push_back(child);
  }
  hierarchy_.objects[id].childCount = static_cast<std::uint32_t>(children.size());
  pendingObjects_.insert(pendingObjects_.end(), children.rbegin(), children.rend());
  return properties == Hdf5Link::kNowhere || ReadProperties(id, properties, error);
}

bool Hdf5HierarchyReader::ReadProperties(ObjectId id, std::uint64_t address, io::Error& error) {
  if (!ReadCompound(id, kNone, address, error)) return false;
  while (!pendingProperties_.empty()) {
    const PendingProperty pending = pendingProperties_.back();
    pendingProperties_.pop_back();
    const auto property = static_cast<PropertyId>(hierarchy_.properties.size());
    if (!builder_.Settle(AddProperty(pending, error), id, error, property)) return false;
  }
  return true;
}

bool Hdf5HierarchyReader::AddProperty(const PendingProperty& pending, io::Error& error) {
  const auto id = static_cast<PropertyId>(hierarchy_.properties.size());
  hierarchy_.properties.push_back(pending.property);
  samples_.push_back(pending.samples);
  if (pending.property.kind == EPropertyKind::eCompound) {
    // One without properties has no group.
    return pending.address == Hdf5Link::kNowhere ||
           ReadCompound(pending.property.object, id, pending.address, error);
  }
  const bool has =
      pending.samples.compound != Hdf5Link::kNowhere &&
      (pending.property.StoredCount() < 2 || pending.samples.rest != Hdf5Link::kNowhere);
  if (has || pending.property.sampleCount == 0) return true;
  hierarchy_.properties[id].sampleCount = 0;
  return error.Set(io::Error::eDamaged, "a property of %u samples does not have them",
                   pending.property.sampleCount);
}

bool Hdf5HierarchyReader::ReadCompound(ObjectId object, PropertyId parent, std::uint64_t address,
                                       io::Error& error) {
  Compound compound;
  compound.address = address;
  std::vector<Hdf5Link> links;
  std::uint64_t bytes = 0;
  if (!EnterGroup(address, compound.group, error) ||
      !ListLinks(compound.group.Get(), object, links, error) ||
      !file_.ListAttributes(compound.group.Get(), budget_, compound.attributes, bytes, error) ||
      !builder_.Spend(bytes, budget_, error)) {
    return false;
  }
  for (Hdf5Link& link : links) compound.links.emplace(std::move(link.name), link.address);
  const std::size_t firstPending = pendingProperties_.size();
  for (const std::string& attribute : compound.attributes) {
    if (!attribute.ends_with(kInfo)) continue;
    const std::string name = attribute.substr(0, attribute.size() - kInfo.size());
    PendingProperty child = {};
    const bool read = ReadProperty(compound, name, child, error);
    if (!read && error.kind() == io::Error::eDamaged) {
      builder_.NoteProblem(object, ("property \"" + name + "\": " + error.text()).c_str());
      error.Clear();
      continue;
    }
    if (!read) return false;
    child.property.object = object;
    child.property.parent = parent;
    const bool sound = builder_.CheckProperty(child.property, name, object);
    if (!builder_.AddName(name, object, child.property.name, error)) return false;
    if (sound && child.property.name.length != 0) pendingProperties_.push_back(child);
  }
  std::reverse(pendingProperties_.begin() + static_cast<std::ptrdiff_t>(firstPending),
               pendingProperties_.end());
  return true;
}

bool Hdf5HierarchyReader::ReadProperty(const Compound& compound, const std::string& name,
                                       PendingProperty& pending, io::Error& error) {
  const auto link = [&](const std::string& suffix) {
    const auto found = compound.links.find(name + suffix);
    return found != compound.links.end() ? found->second : Hdf5Link::kNowhere;
  };
  const hid_t group = compound.group.Get();
  if (!file_.ReadAttribute(group, name + std::string(kInfo), EPlainType::eUint32, bytes_, error))
    return false;
  const auto words = Numbers<std::uint32_t>(bytes_);
  pending.address = link("");
  pending.samples = {compound.address, link(".smp0"), link(".smpi")};
  const bool scalar = !words.empty() && (words[0] & kKindMask) == kScalar;
  const bool hasFirst = scalar ? Hdf5File::HasAttribute(group, name + ".smp0")
                               : pending.samples.first != Hdf5Link::kNowhere;
  if (!hasFirst) pending.samples.compound = Hdf5Link::kNowhere;
  return ParseProperty(words, hasFirst, pending.property, error) &&
         ReadMetadata(group, name + ".meta", pending.property.metadata, error);
}

bool Hdf5HierarchyReader::EnterGroup(std::uint64_t address, Hdf5Handle& group, io::Error& error) {
  if (address == Hdf5Link::kElsewhere)
    return error.Set(io::Error::eDamaged, "a link that leads elsewhere is not followed");
  if (!entered_.insert(address).second) {
    return error.Set(io::Error::eDamaged, "the group at %llu is listed twice",
                     static_cast<unsigned long long>(address));
  }
  return file_.OpenGroup(address, group, error);
}

bool Hdf5HierarchyReader::ListLinks(hid_t group, ObjectId object, std::vector<Hdf5Link>& links,
                                    io::Error& error) {
  std::uint64_t bytes = 0;
  return builder_.Settle(file_.ListLinks(group, budget_, links, bytes, error), object, error) &&
         builder_.Spend(bytes, budget_, error);
}

bool Hdf5HierarchyReader::ReadMetadata(hid_t group, const std::string& name,
                                       std::uint32_t& metadata, io::Error& error) {
  metadata = 0;
  if (!Hdf5File::HasAttribute(group, name)) return true;
  if (!file_.ReadAttribute(group, name, EPlainType::eString, bytes_, error)) return false;
  std::string text(reinterpret_cast<const char*>(bytes_.data()), bytes_.size());
  text.resize(std::min(text.find('\0'), text.size()));
  const auto next = static_cast<std::uint32_t>(hierarchy_.metadata.size());
  const auto [entry, isNew] = metadata_.emplace(std::move(text), next);
  if (isNew) hierarchy_.metadata.push_back(entry->first);
  metadata = entry->second;
  return true;
}

}  // namespace kelsdk::alembic
