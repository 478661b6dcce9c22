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

}  // namespace kelsdk::nc
