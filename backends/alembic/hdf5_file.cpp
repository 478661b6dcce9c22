#include "backends/alembic/hdf5_file.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <tuple>

#include "backends/io/checked.h"

namespace kelsdk::alembic {
namespace {

using Ull = unsigned long long;  // for messages

// Writers store a sample as one chunk. The library looks for each by going through all.
constexpr std::uint64_t kMostChunks = 4096;
// Nothing is called this. Asking for it makes the library look at every entry, and fail in order at
// a damaged one; listing them without, it would free what it has not filled in yet.
constexpr char kNoName[] = "\x01";
// No deflated stream becomes longer than this many times its own length.
constexpr std::uint64_t kMostInflation = 1032;

// What the library's callbacks fill: no exception may pass through it.
template <typename Entry>
struct Collector {
  std::vector<Entry>& entries;
  std::uint64_t most;
  std::uint64_t& bytes;
  std::exception_ptr failure;

  // Whether to go on, as the library wants to know it.
  template <typename Make>
  herr_t Add(const char* name, Make make) noexcept try {
    bytes += Hdf5File::kEntryBytes + std::strlen(name);
    if (bytes > most) return 1;
    entries.push_back(make());
    return 0;
  } catch (...) {
    failure = std::current_exception();
    return -1;
  }
};

herr_t AddLink(hid_t /*group*/, const char* name, const H5L_info_t* info, void* context) {
  return static_cast<Collector<Hdf5Link>*>(context)->Add(name, [&] {
    const bool hard = info->type == H5L_TYPE_HARD;
    return Hdf5Link{name, hard ? info->u.address : Hdf5Link::kElsewhere,
                    info->corder_valid ? info->corder : 0};
  });
}

herr_t AddName(hid_t /*object*/, const char* name, const H5A_info_t* /*info*/, void* context) {
  return static_cast<Collector<std::string>*>(context)->Add(name,
                                                            [&] { return std::string(name); });
}

bool IsHalf(hid_t type) {
  std::size_t sign = 0;
  std::size_t exponent = 0;
  std::size_t exponentBits = 0;
  std::size_t fraction = 0;
  std::size_t fractionBits = 0;
  return H5Tget_fields(type, &sign, &exponent, &exponentBits, &fraction, &fractionBits) >= 0 &&
         sign == 15 && exponent == 10 && exponentBits == 5 && fraction == 0 && fractionBits == 10;
}

bool IsFloat(hid_t type, EPlainType plain) {
  switch (plain) {
    case EPlainType::eFloat16: return IsHalf(type);
    case EPlainType::eFloat32: return H5Tequal(type, H5T_IEEE_F32LE) > 0;
    case EPlainType::eFloat64: return H5Tequal(type, H5T_IEEE_F64LE) > 0;
    default: return false;
  }
}

bool IsInteger(hid_t type, EPlainType plain) {
  // Bools are stored with a precision of one bit, strings as characters of either sign.
  if (plain == EPlainType::eBool) return true;
  if (H5Tget_offset(type) != 0 || H5Tget_precision(type) != 8 * PlainTypeSize(plain)) return false;
  if (!IsNumeric(plain)) return true;
  const bool isSigned = H5Tget_sign(type) == H5T_SGN_2;
  return isSigned == (plain == EPlainType::eInt8 || plain == EPlainType::eInt16 ||
                      plain == EPlainType::eInt32 || plain == EPlainType::eInt64);
}

// Whether values are stored as our reading takes them: their bytes as they are, little-endian.
bool IsStoredAs(hid_t type, EPlainType plain) {
  const std::size_t size = H5Tget_size(type);
  if (size != PlainTypeSize(plain)) return false;
  if (size > 1 && H5Tget_order(type) != H5T_ORDER_LE) return false;
  switch (H5Tget_class(type)) {
    case H5T_FLOAT: return IsFloat(type, plain);
    case H5T_INTEGER:
      return plain != EPlainType::eFloat16 && plain != EPlainType::eFloat32 &&
             plain != EPlainType::eFloat64 && IsInteger(type, plain);
    default: return false;
  }
}

bool IsFixedText(hid_t type, EPlainType plain) {
  return plain == EPlainType::eString && H5Tget_class(type) == H5T_STRING &&
         H5Tis_variable_str(type) == 0;
}

bool RefuseType(EPlainType plain, io::Error& error) {
  return error.Set(io::Error::eDamaged, "values of another type than %s", PlainTypeName(plain));
}

// Anything but one step of deflate, which the format uses, is refused.
bool HasKnownFilters(hid_t creation, bool& deflated) {
  const int count = H5Pget_nfilters(creation);
  deflated = count == 1;
  if (count == 0) return true;
  unsigned flags = 0;
  std::size_t parameters = 0;
  unsigned config = 0;
  return count == 1 && H5Pget_filter2(creation, 0, &flags, &parameters, nullptr, 0, nullptr,
                                      &config) == H5Z_FILTER_DEFLATE;
}

}  // namespace

Hdf5File::~Hdf5File() {
  if (!handle_) return;
  const Hdf5Turn turn;
  handle_ = Hdf5Handle();
}

bool Hdf5File::Open(const char* path, io::Error& error) {
  if (!file_.Open(path, error)) return false;
  cache_.Start();
  if (!headers_.CheckContainer(error)) return false;
  handle_ = OpenHdf5(source_);
  return handle_ || Fail("the container", error);
}

bool Hdf5File::OpenRoot(Hdf5Handle& root, io::Error& error) {
  root = Hdf5Handle(H5Gopen2(handle_.Get(), "/", H5P_DEFAULT));
  return root || Fail("the root group", error);
}

bool Hdf5File::OpenGroup(std::uint64_t address, Hdf5Handle& group, io::Error& error) {
  if (!headers_.CheckObject(address, error)) return false;
  group = Hdf5Handle(H5Oopen_by_addr(handle_.Get(), address));
  if (!group) return Fail("a group", error);
  return H5Iget_type(group.Get()) == H5I_GROUP ||
         error.Set(io::Error::eDamaged, "what stands for a group is none");
}

bool Hdf5File::ListLinks(hid_t group, std::uint64_t most, std::vector<Hdf5Link>& links,
                         std::uint64_t& bytes, io::Error& error) {
  bytes = 0;
  links.clear();
  if (H5Lexists(group, kNoName, H5P_DEFAULT) < 0) return Fail("the links of a group", error);
  Collector<Hdf5Link> collector{links, most, bytes, nullptr};
  // In any other order the library fills a table first, and frees what it did not fill when it
  // fails.
  const herr_t result =
      H5Literate(group, H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, AddLink, &collector);
  if (collector.failure) std::rethrow_exception(collector.failure);
  std::sort(links.begin(), links.end(), [](const Hdf5Link& a, const Hdf5Link& b) {
    return std::tie(a.order, a.name) < std::tie(b.order, b.name);
  });
  return result >= 0 || Fail("the links of a group", error);
}

bool Hdf5File::ListAttributes(hid_t group, std::uint64_t most, std::vector<std::string>& names,
                              std::uint64_t& bytes, io::Error& error) {
  bytes = 0;
  names.clear();
  if (H5Aexists(group, kNoName) < 0) return Fail("the attributes of a group", error);
  Collector<std::string> collector{names, most, bytes, nullptr};
  const herr_t result =
      H5Aiterate2(group, H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, AddName, &collector);
  if (collector.failure) std::rethrow_exception(collector.failure);
  return result >= 0 || Fail("the attributes of a group", error);
}

bool Hdf5File::HasAttribute(hid_t group, const std::string& name) {
  return H5Aexists(group, name.c_str()) > 0;
}

bool Hdf5File::CountValues(hid_t space, std::uint64_t size, std::uint64_t& bytes,
                           io::Error& error) {
  const H5S_class_t kind = H5Sget_simple_extent_type(space);
  const hssize_t count = kind == H5S_NULL ? 0 : H5Sget_simple_extent_npoints(space);
  if (kind == H5S_NO_CLASS || count < 0) return Fail("a data space", error);
  if (io::CheckedMultiply(static_cast<std::uint64_t>(count), size, &bytes)) return true;
  return error.Set(io::Error::eDamaged, "%llu values are more than can be",
                   static_cast<Ull>(count));
}

bool Hdf5File::ReadAttribute(hid_t group, const std::string& name, EPlainType type,
                             std::vector<std::uint8_t>& bytes, io::Error& error) {
  const Hdf5Handle attribute(H5Aopen(group, name.c_str(), H5P_DEFAULT));
  if (!attribute) return Fail("an attribute", error);
  const Hdf5Handle stored(H5Aget_type(attribute.Get()));
  const Hdf5Handle space(H5Aget_space(attribute.Get()));
  if (!stored || !space) return Fail("an attribute", error);
  const bool text = IsFixedText(stored.Get(), type);
  if (!text && !IsStoredAs(stored.Get(), type)) return RefuseType(type, error);
  std::uint64_t size = 0;
  if (!CountValues(space.Get(), H5Tget_size(stored.Get()), size, error)) return false;
  if (size > Size() || size != H5Aget_storage_size(attribute.Get()) ||
      (text && size != H5Tget_size(stored.Get()))) {
    return error.Set(io::Error::eDamaged, "an attribute claims %llu bytes", static_cast<Ull>(size));
  }
  bytes.assign(static_cast<std::size_t>(size) + (text ? 1 : 0), 0);
  if (size != 0 && H5Aread(attribute.Get(), stored.Get(), bytes.data()) < 0)
    return Fail("an attribute", error);
  if (text) bytes.resize(std::strlen(reinterpret_cast<const char*>(bytes.data())) + 1);
  return true;
}

bool Hdf5File::AddExtent(const Hdf5Extent& extent, Hdf5Values& values, io::Error& error) const {
  const std::uint64_t most =
      extent.deflated && extent.stored < Size() ? extent.stored * kMostInflation : extent.stored;
  if (io::RangeFits(extent.offset, extent.stored, Size()) && values.extentBytes <= most &&
      (extent.deflated || values.extentBytes == extent.stored)) {
    values.extents.push_back(extent);
    return true;
  }
  return error.Set(io::Error::eDamaged,
                   "%llu bytes of values claimed in %llu bytes at %llu of %llu",
                   static_cast<Ull>(values.extentBytes), static_cast<Ull>(extent.stored),
                   static_cast<Ull>(extent.offset), static_cast<Ull>(Size()));
}

bool Hdf5File::LocateChunks(hid_t set, hid_t creation, std::uint64_t size, Hdf5Values& values,
                            io::Error& error) {
  hsize_t chunk = 0;
  bool filtered = false;
  if (!HasKnownFilters(creation, filtered)) {
    H5Eclear2(H5E_DEFAULT);
    return error.Set(io::Error::eUnsupported, "values in a filter other than deflate");
  }
  if (H5Pget_chunk(creation, 1, &chunk) != 1 || chunk == 0 ||
      !io::CheckedMultiply(std::uint64_t{chunk}, size, &values.extentBytes)) {
    return error.Set(io::Error::eDamaged, "chunks of more than one dimension, or of none");
  }
  const std::uint64_t count = (values.bytes - 1) / values.extentBytes + 1;
  if (count > kMostChunks) {
    return error.Set(io::Error::eUnsupported, "a sample in %llu chunks, up to %llu are served",
                     static_cast<Ull>(count), static_cast<Ull>(kMostChunks));
  }
  for (std::uint64_t i = 0; i < count; ++i) {
    const hsize_t at = i * chunk;
    unsigned mask = 0;
    haddr_t address = HADDR_UNDEF;
    hsize_t stored = 0;
    if (H5Dget_chunk_info_by_coord(set, &at, &mask, &address, &stored) < 0)
      return Fail("a chunk", error);
    if (address == HADDR_UNDEF)
      return error.Set(io::Error::eDamaged, "values that were never stored");
    if (!AddExtent({address, stored, filtered && (mask & 1) == 0}, values, error)) return false;
  }
  return true;
}

bool Hdf5File::Locate(std::uint64_t address, EPlainType type, Hdf5Values& values,
                      io::Error& error) {
  values.bytes = 0;
  values.extents.clear();
  if (address >= Size()) return error.Set(io::Error::eDamaged, "a sample has no data set");
  if (!headers_.CheckObject(address, error)) return false;
  const Hdf5Handle set(H5Oopen_by_addr(handle_.Get(), address));
  if (!set) return Fail("a data set", error);
  if (H5Iget_type(set.Get()) != H5I_DATASET)
    return error.Set(io::Error::eDamaged, "what stands for a data set is none");
  const Hdf5Handle creation(H5Dget_create_plist(set.Get()));
  if (!creation) return Fail("a data set", error);
  // First of all: asking a virtual one for its extent would open other files.
  const H5D_layout_t layout = H5Pget_layout(creation.Get());
  if ((layout != H5D_CONTIGUOUS && layout != H5D_CHUNKED) ||
      H5Pget_external_count(creation.Get()) != 0) {
    return error.Set(io::Error::eUnsupported, "values that are kept elsewhere, or in a header");
  }
  const Hdf5Handle stored(H5Dget_type(set.Get()));
  const Hdf5Handle space(H5Dget_space(set.Get()));
  if (!stored || !space) return Fail("a data set", error);
  if (!IsStoredAs(stored.Get(), type)) return RefuseType(type, error);
  if (!CountValues(space.Get(), PlainTypeSize(type), values.bytes, error)) return false;
  if (values.bytes == 0) return true;
  if (H5Sget_simple_extent_ndims(space.Get()) != 1)
    return error.Set(io::Error::eDamaged, "a data set of more than one dimension");
  if (layout == H5D_CHUNKED)
    return LocateChunks(set.Get(), creation.Get(), PlainTypeSize(type), values, error);
  const haddr_t offset = H5Dget_offset(set.Get());
  if (offset == HADDR_UNDEF) {
    H5Eclear2(H5E_DEFAULT);
    return error.Set(io::Error::eDamaged, "values that were never stored");
  }
  values.extentBytes = values.bytes;
  return AddExtent({offset, values.bytes, false}, values, error);
}

}  // namespace kelsdk::alembic
