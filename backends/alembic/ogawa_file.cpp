#include "backends/alembic/ogawa_file.h"

#include <algorithm>
#include <cstring>

#include "backends/io/byte_reader.h"
#include "backends/io/checked.h"

namespace kelsdk::alembic {
namespace {

constexpr std::uint64_t kHeaderBytes = 16;  // signature, frozen flag, version, root offset
constexpr std::uint64_t kCountBytes = 8;    // before the slots of a group and the bytes of a block
constexpr std::uint64_t kKeyBytes = 16;     // a hash of the values that follow it
constexpr std::uint8_t kFrozen = 0xff;
static_assert(OgawaFile::kBeforeValues == kCountBytes + kKeyBytes);

using Ull = unsigned long long;  // for messages

}  // namespace

bool OgawaFile::Open(const char* path, io::Error& error) {
  if (!file_.Open(path, error)) return false;
  if (file_.Size() < kHeaderBytes) {
    return error.Set(io::Error::eDamaged, "not an Alembic archive: %llu bytes",
                     static_cast<Ull>(file_.Size()));
  }
  cache_.Start();
  samples_.Forget();
  std::uint8_t header[kHeaderBytes];
  if (!file_.ReadAt(0, header, sizeof header, error)) return false;
  io::ByteReader in(header, sizeof header);
  const bool signature = in.Match("Ogawa", 5);
  const std::uint8_t frozen = in.U8();
  const unsigned version = in.U16Big();  // the only big-endian number of the format
  root_ = OgawaSlot(in.U64());
  if (!signature) return error.Set(io::Error::eDamaged, "not an Alembic archive");
  if (frozen != kFrozen) {
    return error.Set(io::Error::eDamaged,
                     "the archive was not finished: still being written, or its writer died");
  }
  if (version != 1)
    return error.Set(io::Error::eUnsupported, "container version %u, 1 is served", version);
  // The root is written last.
  if (io::RangeFits(root_.Offset(), kCountBytes, Size())) return true;
  return error.Set(io::Error::eCutShort, "cut short: the root group lies at %llu of %llu bytes",
                   static_cast<Ull>(root_.Offset()), static_cast<Ull>(Size()));
}

bool OgawaFile::IsHdf5() const {
  static constexpr unsigned char kSignature[] = {0x89, 'H', 'D', 'F', 0x0d, 0x0a, 0x1a, 0x0a};
  if (!file_.IsOpen()) return false;
  // HDF5 allows a block of the user's own of 512 x 2^n bytes before its signature.
  io::Error ignored;
  std::uint64_t offset = 0;
  while (io::RangeFits(offset, sizeof kSignature, file_.Size())) {
    unsigned char bytes[sizeof kSignature];
    if (!file_.ReadAt(offset, bytes, sizeof bytes, ignored)) return false;
    if (std::memcmp(bytes, kSignature, sizeof bytes) == 0) return true;
    offset = offset == 0 ? 512 : offset * 2;
  }
  return false;
}

bool OgawaFile::OpenGroup(OgawaSlot slot, const char* what, OgawaGroup& group, io::Error& error) {
  group = {};
  if (!slot.IsGroup()) return error.Set(io::Error::eDamaged, "%s is a block, not a group", what);
  if (slot.IsEmpty()) return true;
  const std::uint64_t offset = slot.Offset();
  if (offset < kHeaderBytes || !io::RangeFits(offset, kCountBytes, Size())) {
    return error.Set(io::Error::eDamaged, "%s lies at %llu of %llu bytes", what,
                     static_cast<Ull>(offset), static_cast<Ull>(Size()));
  }
  std::uint64_t count = 0;
  if (!cache_.Read(offset, &count, sizeof count, error)) return false;
  const std::uint64_t most = (Size() - offset - kCountBytes) / sizeof(OgawaSlot);
  if (count == 0 || count > most) {
    return error.Set(io::Error::eDamaged, "%s has %llu slots, the file holds %llu from there", what,
                     static_cast<Ull>(count), static_cast<Ull>(most));
  }
  group = {offset, count};
  return true;
}

bool OgawaFile::ReadSlots(const OgawaGroup& group, std::uint64_t first, std::size_t count,
                          OgawaSlot* slots, io::Error& error, bool sparse) {
  if (!io::RangeFits(first, count, group.slotCount)) {
    return error.Set(io::Error::eDamaged, "slots %llu to %llu of a group of %llu",
                     static_cast<Ull>(first), static_cast<Ull>(first) + count,
                     static_cast<Ull>(group.slotCount));
  }
  const std::uint64_t offset = group.offset + kCountBytes + first * sizeof(OgawaSlot);
  const std::size_t bytes = count * sizeof(OgawaSlot);
  return sparse ? file_.ReadAt(offset, slots, bytes, error)
                : cache_.Read(offset, slots, bytes, error);
}

bool OgawaFile::CheckBlock(OgawaSlot slot, std::uint64_t size, const char* what,
                           io::Error& error) const {
  const std::uint64_t left = Size() - slot.Offset() - kCountBytes;
  if (size <= left) return true;
  return error.Set(io::Error::eDamaged, "%s at %llu claims %llu bytes, %llu are left", what,
                   static_cast<Ull>(slot.Offset()), static_cast<Ull>(size), static_cast<Ull>(left));
}

bool OgawaFile::CheckBlockStart(OgawaSlot slot, const char* what, io::Error& error) const {
  if (!slot.IsData()) return error.Set(io::Error::eDamaged, "%s is a group, not a block", what);
  if (slot.IsEmpty()) return true;
  if (slot.Offset() >= kHeaderBytes && io::RangeFits(slot.Offset(), kCountBytes, Size()))
    return true;
  return error.Set(io::Error::eDamaged, "%s lies at %llu of %llu bytes", what,
                   static_cast<Ull>(slot.Offset()), static_cast<Ull>(Size()));
}

bool OgawaFile::BlockSize(OgawaSlot slot, bool sparse, std::uint64_t& size, io::Error& error) {
  size = 0;
  if (!CheckBlockStart(slot, "a sample", error)) return false;
  if (slot.IsEmpty()) return true;
  const bool read = sparse ? file_.ReadAt(slot.Offset(), &size, sizeof size, error)
                           : cache_.Read(slot.Offset(), &size, sizeof size, error);
  return read && CheckBlock(slot, size, "a sample", error);
}

bool OgawaFile::HasBlockSizeInMemory(OgawaSlot slot) const {
  return file_.IsInMemory(slot.Offset());
}

void OgawaFile::ExpectBlockSize(OgawaSlot slot) const {
  if (!slot.IsEmpty() && slot.Offset() < Size()) file_.WillNeed(slot.Offset(), kCountBytes);
}

bool OgawaFile::ReadBlock(OgawaSlot slot, std::uint64_t most, const char* what,
                          std::vector<std::uint8_t>& bytes, io::Error& error) {
  bytes.clear();
  if (!CheckBlockStart(slot, what, error)) return false;
  if (slot.IsEmpty()) return true;
  std::uint64_t size = 0;
  if (!cache_.Read(slot.Offset(), &size, sizeof size, error)) return false;
  if (!CheckBlock(slot, size, what, error)) return false;
  if (size > most) {
    return error.Set(io::Error::eDamaged, "%s has %llu bytes, at most %llu are possible", what,
                     static_cast<Ull>(size), static_cast<Ull>(most));
  }
  bytes.resize(static_cast<std::size_t>(size));
  return cache_.Read(slot.Offset() + kCountBytes, bytes.data(), bytes.size(), error);
}

bool OgawaFile::ReadValues(std::uint32_t stream, OgawaSlot slot, std::uint64_t expected,
                           void* values, std::uint64_t room, std::uint64_t& valueBytes,
                           io::Error& error) {
  valueBytes = 0;
  if (!CheckBlockStart(slot, "a sample", error)) return false;
  if (slot.IsEmpty()) return true;
  const std::uint64_t offset = slot.Offset();
  const std::uint64_t left = Size() - offset;
  std::uint8_t head[kBeforeValues];
  const std::uint64_t headBytes = std::min<std::uint64_t>(sizeof head, left);
  const std::uint64_t first = std::min({expected, room, left - headBytes});
  auto* bytes = static_cast<std::uint8_t*>(values);
  struct iovec runs[] = {{head, static_cast<std::size_t>(headBytes)},
                         {bytes, static_cast<std::size_t>(first)}};
  if (!samples_.ReadScatter(stream, offset, runs, 2, error)) return false;
  const auto size = io::LoadLittle<std::uint64_t>(head);
  if (!CheckBlock(slot, size, "a sample", error) || !ValueBytes(size, valueBytes, error)) {
    return false;
  }
  const std::uint64_t wanted = std::min(valueBytes, room);
  if (wanted <= first) return true;
  return file_.ReadAt(offset + sizeof head + first, bytes + first,
                      static_cast<std::size_t>(wanted - first), error);
}

bool OgawaFile::ReadThrough(OgawaSlot slot, std::vector<std::uint8_t>& scratch, io::Error& error) {
  constexpr std::uint64_t kPieceBytes = 1 << 20;
  std::uint64_t size = 0;
  if (!BlockSize(slot, false, size, error)) return false;
  const auto most = static_cast<std::size_t>(std::min(size, kPieceBytes));
  if (scratch.size() < most) scratch.resize(most);
  for (std::uint64_t done = 0; done < size; done += kPieceBytes) {
    const auto count = static_cast<std::size_t>(std::min(size - done, kPieceBytes));
    if (!cache_.Read(slot.Offset() + kCountBytes + done, scratch.data(), count, error))
      return false;
  }
  return true;
}

bool OgawaFile::ValueBytes(std::uint64_t size, std::uint64_t& valueBytes, io::Error& error) {
  if (size != 0 && size < kKeyBytes) {
    return error.Set(io::Error::eDamaged, "a sample of %llu bytes has no room for its key",
                     static_cast<Ull>(size));
  }
  valueBytes = size == 0 ? 0 : size - kKeyBytes;
  return true;
}

}  // namespace kelsdk::alembic
