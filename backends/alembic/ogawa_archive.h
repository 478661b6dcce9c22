#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "backends/alembic/archive.h"
#include "backends/alembic/ogawa_file.h"
#include "backends/alembic/sample_bounds.h"

namespace kelsdk::alembic {

/// An archive in the Ogawa container. Keeps for each property that has been read a window of the
/// list of its samples, so that a sample costs one system call.
class OgawaArchive final : public Archive {
 public:
  /// Reads the hierarchy. Throws std::bad_alloc.
  bool Open(const char* path, io::Error& error);

  /// True after a refused Open of a file in the HDF5 container.
  bool IsHdf5() const { return file_.IsHdf5(); }

  bool ReadValues(PropertyId property, std::uint64_t stored, void* values, std::uint64_t room,
                  std::uint64_t& valueBytes, io::Error& error) override;
  bool ReadDimensions(PropertyId property, std::uint64_t stored, Dimensions& dimensions,
                      io::Error& error) override;
  bool ValueBytes(PropertyId property, std::uint64_t stored, std::uint64_t& valueBytes,
                  io::Error& error) override;
  bool LargestSample(PropertyId property, std::uint64_t& valueBytes, io::Error& error) override;
  bool SampleIdentity(PropertyId property, std::uint64_t stored, std::uint64_t& identity,
                      io::Error& error) override;
  bool HasSampleList(PropertyId property) const override { return lists_[property] != nullptr; }
  bool ReadThrough(PropertyId property, std::uint64_t stored, std::vector<std::uint8_t>& scratch,
                   io::Error& error) override;
  std::uint64_t FileSize() const override { return file_.Size(); }

 private:
  /// Where one stored sample is.
  struct SampleSlots {
    OgawaSlot values;
    OgawaSlot dimensions;  // empty for scalars
  };
  /// What is known of one property's samples.
  struct SampleList {
    OgawaGroup group;
    std::uint64_t windowFirst = 0;
    std::size_t windowCount = 0;
    std::unique_ptr<OgawaSlot[]> window;
    std::uint64_t expectedBytes = ~std::uint64_t{0};  // of the next sample's values: the last one's
    std::uint64_t mostBytes = ~std::uint64_t{0};      // of any sample's values, once that is known
  };

  bool Locate(PropertyId property, std::uint64_t stored, SampleSlots& slots, io::Error& error);
  bool OpenList(PropertyId property, io::Error& error);
  template <typename Visit>
  bool VisitSlots(const OgawaGroup& group, std::uint64_t count, io::Error& error, Visit visit);
  bool BoundByOwnList(PropertyId property, SampleBounds& bounds, io::Error& error);
  void BoundByNeighbours(PropertyId property, std::uint64_t valueBytes, SampleBounds& bounds);
  bool BoundByList(PropertyId other, SampleBounds& bounds);
  void ExpectSizes(PropertyId property, std::uint64_t stored, std::uint64_t valueBytes,
                   const SampleBounds& bounds);
  bool MoveWindow(SampleList& list, std::uint64_t slot, io::Error& error);
  bool CheckWhole(PropertyId property, std::uint64_t valueBytes, io::Error& error) const;

  OgawaFile file_;
  std::vector<OgawaSlot> sampleGroups_;
  std::vector<std::unique_ptr<SampleList>> lists_;  // null before the first use
  std::uint64_t listBudget_ = 0;      // bytes of sample lists that may still be opened
  std::uint64_t lastSizeOffset_ = 0;  // where ValueBytes read last
};

}  // namespace kelsdk::alembic
