#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backends/alembic/hdf5_headers.h"
#include "backends/alembic/hdf5_library.h"
#include "backends/alembic/plain_type.h"

namespace kelsdk::alembic {

/// An entry of a group.
struct Hdf5Link {
  static constexpr std::uint64_t kNowhere = ~std::uint64_t{0};
  static constexpr std::uint64_t kElsewhere = kNowhere - 1;
  std::string name;
  std::uint64_t address = kNowhere;  ///< of the object in this very file; else kElsewhere
  std::int64_t order = 0;            ///< of creation, where the group keeps it
};

/// Bytes of a data set that lie together in the file.
struct Hdf5Extent {
  std::uint64_t offset = 0;
  std::uint64_t stored = 0;  ///< bytes there
  bool deflated = false;
};

/// Where the values of a data set are, one extent after the other.
struct Hdf5Values {
  std::uint64_t bytes = 0;        ///< of all values
  std::uint64_t extentBytes = 0;  ///< of the values of an extent; the last may be used in part
  std::vector<Hdf5Extent> extents;
};

/// The container: groups, attributes and data sets. Nothing outside of the file is opened: links
/// that lead elsewhere, virtual data sets and external values are refused. Of data sets only the
/// place and the kind of their values are asked; reading them is the caller's. All within an
/// Hdf5Turn; all may throw std::bad_alloc.
class Hdf5File {
 public:
  Hdf5File() = default;
  Hdf5File(const Hdf5File&) = delete;
  Hdf5File& operator=(const Hdf5File&) = delete;
  ~Hdf5File();

  bool Open(const char* path, io::Error& error);

  const io::InputFile& file() const { return file_; }
  std::uint64_t Size() const { return file_.Size(); }

  bool OpenRoot(Hdf5Handle& root, io::Error& error);
  bool OpenGroup(std::uint64_t address, Hdf5Handle& group, io::Error& error);

  /// The least that a link or an attribute takes of the file, beside its name.
  static constexpr std::uint64_t kEntryBytes = 16;

  /// The links of a group, in the order in which they were made where that is kept, else by name.
  /// `bytes` is what they take of the file at least; they end when that exceeds `most`.
  bool ListLinks(hid_t group, std::uint64_t most, std::vector<Hdf5Link>& links,
                 std::uint64_t& bytes, io::Error& error);

  /// The names of a group's attributes in the order in which they are kept, bounded as above.
  bool ListAttributes(hid_t group, std::uint64_t most, std::vector<std::string>& names,
                      std::uint64_t& bytes, io::Error& error);

  static bool HasAttribute(hid_t group, const std::string& name);

  /// Reads the values of an attribute of exactly this type. Text is read with a terminator behind
  /// it, whether it is stored with one or not.
  bool ReadAttribute(hid_t group, const std::string& name, EPlainType type,
                     std::vector<std::uint8_t>& bytes, io::Error& error);

  /// Finds the values of the data set at an address. `values` is to be used again for the next.
  bool Locate(std::uint64_t address, EPlainType type, Hdf5Values& values, io::Error& error);

  /// To be called when the hierarchy has been read.
  void ReleaseHeaders() { cache_.Shrink(); }

 private:
  bool Fail(const char* what, io::Error& error) { return SetHdf5Error(source_, what, error); }
  bool CountValues(hid_t space, std::uint64_t size, std::uint64_t& bytes, io::Error& error);
  bool LocateChunks(hid_t set, hid_t creation, std::uint64_t size, Hdf5Values& values,
                    io::Error& error);
  bool AddExtent(const Hdf5Extent& extent, Hdf5Values& values, io::Error& error) const;

  io::InputFile file_;
  BlockCache cache_{file_};
  Hdf5Headers headers_{file_, cache_};
  Hdf5Source source_{file_, cache_, {}};
  Hdf5Handle handle_;
};

}  // namespace kelsdk::alembic
