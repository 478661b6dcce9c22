#pragma once

#include <cstdint>
#include <vector>

#include "backends/io/error.h"
#include "backends/io/input_file.h"
#include "backends/nc/element_type.h"
#include "backends/nc/timeline.h"

namespace kelsdk::nc {

inline bool IsStoredRaw(EType type, const SampleEntry& entry) {
  return entry.storedSize == ArraySize(type, entry.count);
}

/// Whether an array is the one that was written. One that is not is overwritten with zeros: nobody
/// who overlooks the failure takes it for data.
bool VerifyArray(EType type, const SampleEntry& entry, void* array, io::Error& error);

/// Turns the stored form of an array into the array, and verifies it.
bool UnpackArray(EType type, const SampleEntry& entry, const std::uint8_t* stored, void* array,
                 io::Error& error);

/// Reads one array from anything with a ReadAt: straight into place where it is stored raw, through
/// `scratch`, which only grows, where it is not. May throw std::bad_alloc.
template <typename File>
bool FetchArray(const File& file, EType type, const SampleEntry& entry, void* array,
                std::vector<std::uint8_t>* scratch, io::Error& error) {
  const auto storedSize = static_cast<std::size_t>(entry.storedSize);
  if (IsStoredRaw(type, entry)) {
    return file.ReadAt(entry.offset, array, storedSize, error) &&
           VerifyArray(type, entry, array, error);
  }
  if (scratch->size() < storedSize) scratch->resize(storedSize);
  return file.ReadAt(entry.offset, scratch->data(), storedSize, error) &&
         UnpackArray(type, entry, scratch->data(), array, error);
}

/// A run of bytes of a file.
struct FileRange {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;

  bool Contains(const FileRange& other) const { return begin <= other.begin && other.end <= end; }
  std::uint64_t Size() const { return end - begin; }
};

inline FileRange RangeOf(const SampleEntry& entry) {
  return {entry.offset, entry.offset + entry.storedSize};
}

}  // namespace kelsdk::nc
