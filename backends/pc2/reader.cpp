#include "backends/pc2/reader.h"

#include <algorithm>

namespace kelsdk::pc2 {

bool Reader::Open(const char* path, io::Error& error) {
  samples_.Forget();
  if (!file_.Open(path, error)) return false;
  if (file_.Size() < kHeaderSize) {
    return error.Set(io::Error::eDamaged, "not a PC2 file: %llu bytes, the header alone takes %llu",
                     static_cast<unsigned long long>(file_.Size()),
                     static_cast<unsigned long long>(kHeaderSize));
  }
  unsigned char bytes[kHeaderSize];
  if (!file_.ReadAt(0, bytes, sizeof bytes, error)) return false;
  if (!DecodeHeader(bytes, &header_, error)) return false;
  if (header_.version != kVersion) return true;
  if (!CheckCounts(header_, error)) return false;
  if (header_.sampleCount != 0 && WholeSamples() == 0) {
    return error.Set(io::Error::eDamaged, "%u samples of %llu bytes claimed, %llu bytes left",
                     header_.sampleCount, static_cast<unsigned long long>(header_.SampleBytes()),
                     static_cast<unsigned long long>(file_.Size() - kHeaderSize));
  }
  return true;
}

bool Reader::HasSample(std::uint32_t sample, io::Error& error) {
  if (!file_.IsOpen()) return error.Set(io::Error::eRefused, "no file is open for reading");
  if (header_.version != kVersion) return error.Set(io::Error::eUnsupported, "unsupported version");
  if (sample >= header_.sampleCount) {
    return error.Set(io::Error::eRefused, "sample %u asked for, the file has %u", sample,
                     header_.sampleCount);
  }
  if (sample < WholeSamples()) return true;
  // It may have been written since the size was last asked.
  if (!file_.Refresh(error)) return false;
  if (sample < WholeSamples()) return true;
  return error.Set(io::Error::eCutShort,
                   "sample %u is not in the file: it holds %u whole samples of %u claimed", sample,
                   WholeSamples(), header_.sampleCount);
}

bool Reader::Read(std::uint32_t sample, float* points, std::uint32_t* pointCount,
                  io::Error& error) {
  if (!HasSample(sample, error)) return false;
  *pointCount = std::min(*pointCount, header_.pointCount);
  return samples_.ReadAt(0, header_.OffsetOf(sample), points,
                         std::size_t{*pointCount} * kBytesPerPoint, error);
}

bool Reader::ReadRun(std::uint32_t first, std::uint32_t count, float* points, io::Error& error) {
  if (count == 0) return true;
  const std::uint64_t end = std::uint64_t{first} + count;
  if (end > header_.sampleCount) {
    return error.Set(io::Error::eRefused, "samples to %llu asked for, the file has %u",
                     static_cast<unsigned long long>(end), header_.sampleCount);
  }
  return HasSample(static_cast<std::uint32_t>(end - 1), error) &&
         samples_.ReadAt(0, header_.OffsetOf(first), points, header_.SampleBytes() * count, error);
}

}  // namespace kelsdk::pc2
