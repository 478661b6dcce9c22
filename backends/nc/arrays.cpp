#include "backends/nc/arrays.h"

#include <cstring>

#include "backends/nc/checksum.h"
#include "backends/nc/codec.h"

namespace kelsdk::nc {

using io::Error;

bool VerifyArray(EType type, const SampleEntry& entry, void* array, Error& error) {
  const auto size = static_cast<std::size_t>(ArraySize(type, entry.count));
  if (Checksum(array, size) == entry.checksum) return true;
  std::memset(array, 0, size);
  return error.Set(Error::eDamaged, "the %u elements at tick %d do not match their checksum",
                   entry.count, entry.tick);
}

bool UnpackArray(EType type, const SampleEntry& entry, const std::uint8_t* stored, void* array,
                 Error& error) {
  const auto storedSize = static_cast<std::size_t>(entry.storedSize);
  if (IsStoredRaw(type, entry)) {
    if (storedSize != 0) std::memcpy(array, stored, storedSize);
  } else if (!DecodeArray(type, stored, storedSize, array, entry.count, error)) {
    std::memset(array, 0, static_cast<std::size_t>(ArraySize(type, entry.count)));
    return false;
  }
  return VerifyArray(type, entry, array, error);
}

bool GroupBuffer::Read(const io::InputFile& file, const FileRange& group, EType type,
                       const SampleEntry& entry, void* array, Error& error) {
  const FileRange own = RangeOf(entry);
  const bool straight = IsStoredRaw(type, entry);
  Clear();
  const FileRange before{group.begin, straight ? own.begin : group.end};
  const FileRange after{straight ? own.end : group.end, group.end};
  const auto beforeSize = static_cast<std::size_t>(before.Size());
  const auto afterSize = static_cast<std::size_t>(after.Size());
  if (bytes_.size() < beforeSize + afterSize) bytes_.resize(beforeSize + afterSize);
  struct iovec runs[] = {{bytes_.data(), beforeSize},
                         {array, straight ? static_cast<std::size_t>(own.Size()) : 0},
                         {bytes_.data() + beforeSize, afterSize}};
  if (!file.ReadScatter(group.begin, runs, 3, error)) return false;
  before_ = before;
  after_ = after;
  if (straight) return VerifyArray(type, entry, array, error);
  return UnpackArray(type, entry, Find(entry), array, error);
}

const std::uint8_t* GroupBuffer::Find(const SampleEntry& entry) const {
  const FileRange own = RangeOf(entry);
  if (own.Size() == 0) return nullptr;
  if (before_.Contains(own)) return bytes_.data() + (own.begin - before_.begin);
  if (after_.Contains(own)) return bytes_.data() + before_.Size() + (own.begin - after_.begin);
  return nullptr;
}

}  // namespace kelsdk::nc
