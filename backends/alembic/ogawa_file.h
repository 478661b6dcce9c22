#pragma once

#include <cstdint>
#include <vector>

#include "backends/alembic/block_cache.h"
#include "backends/io/input_file.h"
#include "backends/io/sample_reader.h"

namespace kelsdk::alembic {

/// What an entry of a group says: which kind of thing it refers to, and where that begins. All 64
/// bits zero but the kind is the thing of no contents, which is never stored.
class OgawaSlot {
 public:
  OgawaSlot() = default;
  explicit OgawaSlot(std::uint64_t value) : value_(value) {}

  bool IsData() const { return (value_ >> 63) != 0; }
  bool IsGroup() const { return !IsData(); }
  bool IsEmpty() const { return Offset() == 0; }
  std::uint64_t Offset() const { return value_ & ~(std::uint64_t{1} << 63); }

 private:
  std::uint64_t value_ = 0;
};
static_assert(sizeof(OgawaSlot) == 8, "slots are read as they are stored");

/// A stored group whose slots all lie inside the file; the empty group has no slots.
struct OgawaGroup {
  std::uint64_t offset = 0;
  std::uint64_t slotCount = 0;
};

/// The container: groups and blocks of bytes. Every offset and count is checked against the file's
/// size before anything is read or allocated. Operations that read headers go through the block
/// cache and may throw std::bad_alloc; ReadValues goes through a sample reader.
class OgawaFile {
 public:
  /// Of a sample's block: its size and its key.
  static constexpr std::uint64_t kBeforeValues = 24;

  OgawaFile() = default;

  /// Refuses files of other kinds and ones that were never finished.
  bool Open(const char* path, io::Error& error);

  /// True for an open file that has the signature of HDF5, the other container of archives.
  bool IsHdf5() const;

  std::uint64_t Size() const { return file_.Size(); }
  OgawaSlot Root() const { return root_; }

  /// `what` names the group in messages.
  bool OpenGroup(OgawaSlot slot, const char* what, OgawaGroup& group, io::Error& error);

  /// Reads slots [first, first + count) of a group that has them. With `sparse`, here and below,
  /// the cache is left alone: for things that lie further apart than the cache reads at a time.
  bool ReadSlots(const OgawaGroup& group, std::uint64_t first, std::size_t count, OgawaSlot* slots,
                 io::Error& error, bool sparse = false);

  /// Bytes of a block, its key included.
  bool BlockSize(OgawaSlot slot, bool sparse, std::uint64_t& size, io::Error& error);

  /// Whether BlockSize need not wait for the disk, as far as the system tells.
  bool HasBlockSizeInMemory(OgawaSlot slot) const;

  /// Lets the system fetch the size of a block ahead of BlockSize.
  void ExpectBlockSize(OgawaSlot slot) const;

  /// Reads a whole block of at most `most` bytes, through the cache.
  bool ReadBlock(OgawaSlot slot, std::uint64_t most, const char* what,
                 std::vector<std::uint8_t>& bytes, io::Error& error);

  /// Reads the values of a sample's block, up to `room` bytes, and gives how many bytes of values
  /// the block holds. At most one system call when it holds `expected` bytes or fewer, else two. Of
  /// `values`, what lies beyond the block's bytes is unspecified.
  bool ReadValues(std::uint32_t stream, OgawaSlot slot, std::uint64_t expected, void* values,
                  std::uint64_t room, std::uint64_t& valueBytes, io::Error& error);

  /// Reads a whole block in pieces and forgets them. `scratch` grows to what a piece takes.
  bool ReadThrough(OgawaSlot slot, std::vector<std::uint8_t>& scratch, io::Error& error);

  /// Bytes of values in a sample's block of `size` bytes; false for a size that no sample has.
  static bool ValueBytes(std::uint64_t size, std::uint64_t& valueBytes, io::Error& error);

  /// To be called when the headers have been read.
  void ReleaseHeaders() { cache_.Shrink(); }

 private:
  bool CheckBlockStart(OgawaSlot slot, const char* what, io::Error& error) const;
  bool CheckBlock(OgawaSlot slot, std::uint64_t size, const char* what, io::Error& error) const;

  io::InputFile file_;
  BlockCache cache_{file_};
  io::SampleReader samples_{file_};
  OgawaSlot root_;
};

}  // namespace kelsdk::alembic
