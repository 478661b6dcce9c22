#include "backends/nc/file_ends.h"

#include <algorithm>
#include <cstring>

namespace kelsdk::nc {

bool ReadFileHeader(const io::InputFile& file, FileHeader* header, io::Error& error) {
  std::uint8_t bytes[kHeaderSize];
  if (file.Size() < kHeaderSize) {
    return error.Set(io::Error::eCutShort, "a data file of %llu bytes, its header has %zu",
                     static_cast<unsigned long long>(file.Size()), kHeaderSize);
  }
  return file.ReadAt(0, bytes, sizeof bytes, error) && LoadFileHeader(bytes, header, error);
}

bool FileEnd::Read(const io::InputFile& file, io::Error& error) {
  const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(file.Size(), kMostBytes));
  start_ = file.Size() - size;
  hasTrailer_ = false;
  if (!file.ReadAt(start_, bytes_, size, error)) return false;
  hasTrailer_ = size >= kTrailerSize && LoadTrailer(bytes_ + size - kTrailerSize, &trailer_);
  return true;
}

bool FileEnd::ReadAt(const io::InputFile& file, std::uint64_t offset, void* buffer,
                     std::size_t size, io::Error& error) const {
  if (offset < start_) return file.ReadAt(offset, buffer, size, error);
  if (size != 0) std::memcpy(buffer, bytes_ + (offset - start_), size);
  return true;
}

}  // namespace kelsdk::nc
