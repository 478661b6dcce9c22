#include "backends/pc2/header.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "backends/io/byte_reader.h"
#include "backends/io/checked.h"

namespace kelsdk::pc2 {

std::uint32_t Header::WholeSamples(std::uint64_t fileSize) const {
  if (pointCount == 0) return sampleCount;
  const std::uint64_t held = fileSize > kHeaderSize ? (fileSize - kHeaderSize) / SampleBytes() : 0;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(held, sampleCount));
}

bool DecodeHeader(const unsigned char (&bytes)[kHeaderSize], Header* header, io::Error& error) {
  io::ByteReader in(bytes, sizeof bytes);
  if (!in.Match(kSignature, sizeof kSignature)) {
    return error.Set(io::Error::eDamaged, "not a PC2 file: bad signature");
  }
  header->version = in.I32();
  header->pointCount = in.U32();
  header->startFrame = in.F32();
  header->sampleRate = in.F32();
  header->sampleCount = in.U32();
  return in.Ok();
}

bool CheckCounts(const Header& header, io::Error& error) {
  if (header.pointCount > INT_MAX || !io::Fits<std::uint32_t>(header.SampleBytes())) {
    return error.Set(io::Error::eDamaged, "a sample of %u points does not fit 32 bits",
                     header.pointCount);
  }
  return true;
}

void EncodeHeader(const Header& header, unsigned char (&bytes)[kHeaderSize]) {
  std::memcpy(bytes, kSignature, sizeof kSignature);
  io::StoreLittle(bytes + 12, header.version);
  io::StoreLittle(bytes + 16, header.pointCount);
  io::StoreLittle(bytes + 20, header.startFrame);
  io::StoreLittle(bytes + 24, header.sampleRate);
  io::StoreLittle(bytes + 28, header.sampleCount);
}

}  // namespace kelsdk::pc2
