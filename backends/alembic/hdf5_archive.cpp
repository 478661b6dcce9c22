#include "backends/alembic/hdf5_archive.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

#include "backends/alembic/hdf5_hierarchy.h"
#include "backends/alembic/inflater.h"
#include "backends/alembic/samples.h"
#include "backends/io/endian.h"
#include "backends/io/sample_reader.h"

namespace kelsdk::alembic {
namespace {

using Ull = unsigned long long;  // for messages

// Scalars have no place of their own in the file: property and sample stand for it.
constexpr std::uint64_t kScalarIdentity = std::uint64_t{1} << 63;

/// An archive in the HDF5 container. libhdf5 finds each sample once and is not needed for it again:
/// the values of arrays are then read from their place in the file, those of scalars are kept.
class Hdf5Archive final : public Archive {
 public:
  bool Open(const char* path, io::Error& error);

  bool ReadValues(PropertyId property, std::uint64_t stored, void* values, std::uint64_t room,
                  std::uint64_t& valueBytes, io::Error& error) override;
  bool ReadDimensions(PropertyId property, std::uint64_t stored, Dimensions& dimensions,
                      io::Error& error) override;
  bool ValueBytes(PropertyId property, std::uint64_t stored, std::uint64_t& valueBytes,
                  io::Error& error) override;
  bool LargestSample(PropertyId property, std::uint64_t& valueBytes, io::Error& error) override;
  bool SampleIdentity(PropertyId property, std::uint64_t stored, std::uint64_t& identity,
                      io::Error& error) override;
  bool FileBytes(PropertyId property, std::uint64_t stored, std::uint64_t& bytes,
                 io::Error& error) override;
  bool HasSampleList(PropertyId property) const override { return lists_[property] != nullptr; }
  bool ReadThrough(PropertyId property, std::uint64_t stored, std::vector<std::uint8_t>& scratch,
                   io::Error& error) override;
  std::uint64_t FileSize() const override { return file_.Size(); }

 private:
  /// One stored sample.
  struct Sample {
    bool found = false;
    std::uint64_t address = Hdf5Link::kNowhere;  // of an array's data set
    std::uint64_t first = 0;  // an array's extent in List::extents, a scalar's byte in List::values
    std::uint64_t extentCount = 0;
    std::uint64_t extentBytes = 0;
    std::uint64_t bytes = 0;
  };
  struct List {
    std::vector<Sample> samples;
    std::vector<Hdf5Extent> extents;
    std::vector<std::uint8_t> values;
  };

  bool OpenList(PropertyId property, io::Error& error);
  bool FillList(PropertyId property, std::uint64_t rest, List& list, io::Error& error);
  bool Find(PropertyId property, std::uint64_t stored, const Sample*& sample, io::Error& error);
  bool FindArray(PropertyId property, List& list, Sample& sample, io::Error& error);
  bool FindScalar(PropertyId property, std::uint64_t stored, List& list, Sample& sample,
                  io::Error& error);
  bool ReadExtent(PropertyId property, const Hdf5Extent& extent, std::uint64_t size,
                  std::uint8_t* values, std::uint64_t wanted, io::Error& error);
  std::string NameOf(PropertyId property, std::uint64_t stored) const;

  Hdf5File file_;
  io::SampleReader reader_{file_.file()};
  Inflater inflater_;
  std::vector<std::uint8_t> packed_;
  Hdf5Values found_;
  std::vector<Hdf5Samples> samples_;
  std::vector<std::unique_ptr<List>> lists_;  // null before the first use
  std::uint64_t listBudget_ = 0;              // bytes of sample lists that may still be read
};

bool Hdf5Archive::Open(const char* path, io::Error& error) {
  const Hdf5Turn turn;
  if (!file_.Open(path, error)) return false;
  if (!Hdf5HierarchyReader(file_, hierarchy_, samples_).Read(error)) return false;
  lists_.resize(hierarchy_.properties.size());
  listBudget_ = file_.Size();
  file_.ReleaseHeaders();
  return true;
}

// Sample 0 is called after the property, any other by its number.
std::string Hdf5Archive::NameOf(PropertyId property, std::uint64_t stored) const {
  const Property& header = hierarchy_.properties[property];
  if (stored == 0) return std::string(hierarchy_.Name(header.name)) + ".smp0";
  char name[24];
  std::snprintf(name, sizeof name, "%04llu", static_cast<Ull>(header.firstChanged + stored - 1));
  return name;
}

bool Hdf5Archive::OpenList(PropertyId property, io::Error& error) {
  const std::uint64_t count = hierarchy_.properties[property].StoredCount();
  if (count > listBudget_ / Hdf5File::kEntryBytes) {
    return error.Set(io::Error::eDamaged, "%llu samples claimed, more than the file can hold",
                     static_cast<Ull>(count));
  }
  auto list = std::make_unique<List>();
  list->samples.resize(static_cast<std::size_t>(count));
  list->samples[0].address = samples_[property].first;
  if (hierarchy_.properties[property].kind == EPropertyKind::eArray && count > 1 &&
      !FillList(property, samples_[property].rest, *list, error)) {
    return false;
  }
  lists_[property] = std::move(list);
  listBudget_ -= count * Hdf5File::kEntryBytes;
  return true;
}

bool Hdf5Archive::FillList(PropertyId property, std::uint64_t rest, List& list, io::Error& error) {
  Hdf5Handle group;
  std::vector<Hdf5Link> links;
  std::uint64_t bytes = 0;
  if (!file_.OpenGroup(rest, group, error) ||
      !file_.ListLinks(group.Get(), listBudget_, links, bytes, error)) {
    return false;
  }
  const std::uint32_t first = hierarchy_.properties[property].firstChanged;
  for (const Hdf5Link& link : links) {
    std::uint32_t number = 0;
    const char* const end = link.name.data() + link.name.size();
    const auto [last, failure] = std::from_chars(link.name.data(), end, number);
    if (failure != std::errc() || last != end || number < first) continue;
    const std::uint64_t stored = std::uint64_t{number} - first + 1;
    if (stored < list.samples.size()) list.samples[stored].address = link.address;
  }
  return true;
}

bool Hdf5Archive::Find(PropertyId property, std::uint64_t stored, const Sample*& sample,
                       io::Error& error) {
  List* list = lists_[property].get();
  if (list == nullptr || !list->samples[stored].found) {
    const Hdf5Turn turn;
    if (list == nullptr && !OpenList(property, error)) return false;
    list = lists_[property].get();
    Sample& wanted = list->samples[stored];
    const bool array = hierarchy_.properties[property].kind == EPropertyKind::eArray;
    if (!(array ? FindArray(property, *list, wanted, error)
                : FindScalar(property, stored, *list, wanted, error))) {
      return false;
    }
    wanted.found = true;
  }
  sample = &list->samples[stored];
  return true;
}

bool Hdf5Archive::FindArray(PropertyId property, List& list, Sample& sample, io::Error& error) {
  const Property& header = hierarchy_.properties[property];
  if (!file_.Locate(sample.address, header.type, found_, error) ||
      !CheckSampleSize(header, found_.bytes, error)) {
    return false;
  }
  sample.first = list.extents.size();
  sample.extentCount = found_.extents.size();
  sample.extentBytes = found_.extentBytes;
  sample.bytes = found_.bytes;
  list.extents.insert(list.extents.end(), found_.extents.begin(), found_.extents.end());
  return true;
}

bool Hdf5Archive::FindScalar(PropertyId property, std::uint64_t stored, List& list, Sample& sample,
                             io::Error& error) {
  const Property& header = hierarchy_.properties[property];
  const std::uint64_t holder = stored == 0 ? samples_[property].compound : samples_[property].rest;
  Hdf5Handle group;
  std::vector<std::uint8_t> bytes;
  if (!file_.OpenGroup(holder, group, error) ||
      !file_.ReadAttribute(group.Get(), NameOf(property, stored), header.type, bytes, error) ||
      !CheckSampleSize(header, bytes.size(), error)) {
    return false;
  }
  sample.first = list.values.size();
  sample.bytes = bytes.size();
  list.values.insert(list.values.end(), bytes.begin(), bytes.end());
  return true;
}

bool Hdf5Archive::ReadExtent(PropertyId property, const Hdf5Extent& extent, std::uint64_t size,
                             std::uint8_t* values, std::uint64_t wanted, io::Error& error) {
  if (!extent.deflated) {
    return reader_.ReadAt(property, extent.offset, values, static_cast<std::size_t>(wanted), error);
  }
  const auto packed = static_cast<std::size_t>(extent.stored);
  if (packed_.size() < packed) packed_.resize(packed);
  return reader_.ReadAt(property, extent.offset, packed_.data(), packed, error) &&
         inflater_.Inflate(packed_.data(), packed, values, static_cast<std::size_t>(wanted), size,
                           error);
}

bool Hdf5Archive::ReadValues(PropertyId property, std::uint64_t stored, void* values,
                             std::uint64_t room, std::uint64_t& valueBytes, io::Error& error) {
  const Sample* sample = nullptr;
  if (!Find(property, stored, sample, error)) return false;
  valueBytes = sample->bytes;
  const std::uint64_t wanted = std::min(room, sample->bytes);
  const List& list = *lists_[property];
  auto* bytes = static_cast<std::uint8_t*>(values);
  if (hierarchy_.properties[property].kind != EPropertyKind::eArray) {
    if (wanted != 0)
      std::memcpy(bytes, list.values.data() + sample->first, static_cast<std::size_t>(wanted));
    return true;
  }
  std::uint64_t done = 0;
  for (std::uint64_t i = 0; done < wanted; ++i) {
    const std::uint64_t some = std::min(sample->extentBytes, wanted - done);
    if (!ReadExtent(property, list.extents[sample->first + i], sample->extentBytes, bytes + done,
                    some, error)) {
      return false;
    }
    done += some;
  }
  return true;
}

bool Hdf5Archive::ReadDimensions(PropertyId property, std::uint64_t stored, Dimensions& dimensions,
                                 io::Error& error) {
  const Hdf5Turn turn;
  const std::string name = NameOf(property, stored) + ".dims";
  Hdf5Handle group;
  std::vector<std::uint8_t> bytes;
  dimensions.rank = 0;
  const std::uint64_t holder = stored == 0 ? samples_[property].compound : samples_[property].rest;
  if (!file_.OpenGroup(holder, group, error)) return false;
  if (!Hdf5File::HasAttribute(group.Get(), name)) return true;
  if (!file_.ReadAttribute(group.Get(), name, EPlainType::eUint32, bytes, error)) return false;
  const std::size_t rank = bytes.size() / sizeof(std::uint32_t);
  if (rank > Dimensions::kMostRank)
    return error.Set(io::Error::eDamaged, "a sample of %zu dimensions", rank);
  dimensions.rank = rank;
  for (std::size_t i = 0; i < rank; ++i) {
    dimensions.sizes[i] = io::LoadLittle<std::uint32_t>(bytes.data() + i * sizeof(std::uint32_t));
  }
  return true;
}

bool Hdf5Archive::ValueBytes(PropertyId property, std::uint64_t stored, std::uint64_t& valueBytes,
                             io::Error& error) {
  const Sample* sample = nullptr;
  if (!Find(property, stored, sample, error)) return false;
  valueBytes = sample->bytes;
  return true;
}

bool Hdf5Archive::LargestSample(PropertyId property, std::uint64_t& valueBytes, io::Error& error) {
  const std::uint64_t count = hierarchy_.properties[property].StoredCount();
  if (count == 0) return error.Set(io::Error::eRefused, "a property without samples");
  const Hdf5Turn turn;
  bool any = false;
  valueBytes = 0;
  for (std::uint64_t stored = 0; stored < count; ++stored) {
    std::uint64_t bytes = 0;
    if (ValueBytes(property, stored, bytes, error)) {
      valueBytes = std::max(valueBytes, bytes);
      any = true;
    } else if (error.kind() != io::Error::eDamaged || lists_[property] == nullptr) {
      return false;
    }
  }
  if (any) error.Clear();
  return any;
}

bool Hdf5Archive::SampleIdentity(PropertyId property, std::uint64_t stored, std::uint64_t& identity,
                                 io::Error& error) {
  const Sample* sample = nullptr;
  if (!Find(property, stored, sample, error)) return false;
  const bool array = hierarchy_.properties[property].kind == EPropertyKind::eArray;
  identity = sample->bytes == 0 ? 0
             : array            ? lists_[property]->extents[sample->first].offset
                                : kScalarIdentity | std::uint64_t{property} << 32 | stored;
  return true;
}

bool Hdf5Archive::FileBytes(PropertyId property, std::uint64_t stored, std::uint64_t& bytes,
                            io::Error& error) {
  const Sample* sample = nullptr;
  if (!Find(property, stored, sample, error)) return false;
  bytes = sample->extentCount == 0 ? sample->bytes : 0;
  for (std::uint64_t i = 0; i < sample->extentCount; ++i)
    bytes += lists_[property]->extents[sample->first + i].stored;
  return true;
}

bool Hdf5Archive::ReadThrough(PropertyId property, std::uint64_t stored,
                              std::vector<std::uint8_t>& scratch, io::Error& error) {
  constexpr std::uint64_t kPieceBytes = 1 << 20;
  const Sample* sample = nullptr;
  if (!Find(property, stored, sample, error)) return false;
  for (std::uint64_t i = 0; i < sample->extentCount; ++i) {
    const Hdf5Extent& extent = lists_[property]->extents[sample->first + i];
    // A deflated extent is unpacked for its checksum, and needs no room for that.
    if (extent.deflated && !ReadExtent(property, extent, sample->extentBytes, nullptr, 0, error)) {
      return false;
    }
    const std::uint64_t size = extent.deflated ? 0 : extent.stored;
    if (scratch.size() < std::min(size, kPieceBytes))
      scratch.resize(static_cast<std::size_t>(std::min(size, kPieceBytes)));
    for (std::uint64_t done = 0; done < size; done += kPieceBytes) {
      const auto count = static_cast<std::size_t>(std::min(size - done, kPieceBytes));
      if (!reader_.ReadAt(property, extent.offset + done, scratch.data(), count, error))
        return false;
    }
  }
  return true;
}

}  // namespace

std::unique_ptr<Archive> OpenHdf5Archive(const char* path, io::Error& error) {
  auto archive = std::make_unique<Hdf5Archive>();
  if (!archive->Open(path, error)) return nullptr;
  return archive;
}

// In two steps: in one the text would be the names of the macros.
#define KEL_TEXT_OF(number) #number
#define KEL_DOTTED(major, minor, release) \
  KEL_TEXT_OF(major) "." KEL_TEXT_OF(minor) "." KEL_TEXT_OF(release)

const char* Containers() {
  return "Ogawa, HDF5 (libhdf5 " KEL_DOTTED(H5_VERS_MAJOR, H5_VERS_MINOR, H5_VERS_RELEASE) ")";
}

}  // namespace kelsdk::alembic
