#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "backends/alembic/hierarchy.h"
#include "backends/io/error.h"

namespace kelsdk::alembic {

/// The dimensions of one array sample as stored; rank 0 stands for one dimension, which is not
/// stored for numbers.
struct Dimensions {
  static constexpr std::size_t kMostRank = 32;
  std::size_t rank = 0;
  std::uint64_t sizes[kMostRank] = {};

  /// The product of the sizes; false when it does not fit 64 bits.
  bool Product(std::uint64_t& product) const;
};

/// An open archive, whatever container it is kept in: its hierarchy, read when it was opened, and
/// its samples, read when asked for. Samples are named by property and by place among the stored
/// ones (Property::StoredIndex), which must be below Property::StoredCount().
///
/// All may throw std::bad_alloc. ReadValues allocates when it is the first of its property, and
/// once when samples begin to be read ahead.
class Archive {
 public:
  Archive() = default;
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;
  virtual ~Archive() = default;

  const Hierarchy& hierarchy() const { return hierarchy_; }

  /// Reads the values of a sample, at most `room` bytes of them, and gives how many bytes it holds.
  /// They are whole elements, one element for a scalar. Of `values`, what the sample does not fill
  /// is unspecified. Strings come as stored: each with its terminator.
  virtual bool ReadValues(PropertyId property, std::uint64_t stored, void* values,
                          std::uint64_t room, std::uint64_t& valueBytes, io::Error& error) = 0;

  /// Reads the dimensions of an array sample.
  virtual bool ReadDimensions(PropertyId property, std::uint64_t stored, Dimensions& dimensions,
                              io::Error& error) = 0;

  /// Bytes of values in a sample, without reading them.
  virtual bool ValueBytes(PropertyId property, std::uint64_t stored, std::uint64_t& valueBytes,
                          io::Error& error) = 0;

  /// The most bytes that any sound sample of an array property holds, without reading them.
  /// Damaged samples are passed over; false when there is no sound one.
  virtual bool LargestSample(PropertyId property, std::uint64_t& valueBytes, io::Error& error) = 0;

  /// A number that two samples share when they are kept as the same bytes; 0 for one of no bytes.
  virtual bool SampleIdentity(PropertyId property, std::uint64_t stored, std::uint64_t& identity,
                              io::Error& error) = 0;

  /// Bytes that a sample's values take of the file: fewer than they are when they are packed.
  virtual bool FileBytes(PropertyId property, std::uint64_t stored, std::uint64_t& bytes,
                         io::Error& error) {
    return ValueBytes(property, stored, bytes, error);
  }

  /// True once the list of a property's samples has been found sound.
  virtual bool HasSampleList(PropertyId property) const = 0;

  /// Reads all bytes of a sample in pieces, for nothing but the knowledge that they can be read.
  /// `scratch` is memory to be used again for the next sample.
  virtual bool ReadThrough(PropertyId property, std::uint64_t stored,
                           std::vector<std::uint8_t>& scratch, io::Error& error) = 0;

  /// Bytes of the archive's file.
  virtual std::uint64_t FileSize() const = 0;

 protected:
  Hierarchy hierarchy_;
};

/// Opens an archive of a container that is served; null with an error otherwise. Throws
/// std::bad_alloc.
std::unique_ptr<Archive> OpenArchive(const char* path, io::Error& error);

}  // namespace kelsdk::alembic
