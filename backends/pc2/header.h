#pragma once

#include <cstdint>

#include "backends/io/error.h"

namespace kelsdk::pc2 {

inline constexpr char kSignature[12] = "POINTCACHE2";  // the final zero byte is part of it
inline constexpr std::uint64_t kHeaderSize = 32;
inline constexpr std::uint32_t kBytesPerPoint = 12;  // x, y, z as 32-bit floats
inline constexpr std::int32_t kVersion = 1;

/// The 32 bytes at the front of a file, in the file's order after the signature.
struct Header {
  std::int32_t version = kVersion;
  std::uint32_t pointCount = 0;   ///< points per sample
  float startFrame = 0;           ///< frame of sample 0
  float sampleRate = 0;           ///< frames from one sample to the next
  std::uint32_t sampleCount = 0;  ///< samples that follow

  std::uint64_t SampleBytes() const { return std::uint64_t{pointCount} * kBytesPerPoint; }
  /// Where a sample begins. The sum cannot wrap: 32-bit count x less than 2^32 bytes.
  std::uint64_t OffsetOf(std::uint32_t sample) const {
    return kHeaderSize + sample * SampleBytes();
  }
  /// Bytes of a file that holds every sample claimed.
  std::uint64_t FileSize() const { return OffsetOf(sampleCount); }
  /// The whole samples of those claimed that a file of `fileSize` bytes holds.
  std::uint32_t WholeSamples(std::uint64_t fileSize) const;
};

/// False when the bytes do not begin with the signature.
bool DecodeHeader(const unsigned char (&bytes)[kHeaderSize], Header* header, io::Error& error);

/// Refuses a number of points that cannot be: the format stores it signed, and a sample must fit
/// the 32-bit sizes of its readers. The number of samples has no sign and no limit.
bool CheckCounts(const Header& header, io::Error& error);

void EncodeHeader(const Header& header, unsigned char (&bytes)[kHeaderSize]);

}  // namespace kelsdk::pc2
