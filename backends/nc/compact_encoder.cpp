#include "backends/nc/compact_encoder.h"

#include <algorithm>
#include <cstring>

#include "backends/io/endian.h"

// Bytes are handled eight at a time in 64-bit words, which every machine does well.
namespace kelsdk::nc {
namespace {

constexpr std::uint8_t kVersion = 0xa0;
constexpr std::size_t kGroup = 16;
constexpr std::size_t kMostBlockElements = 256;
constexpr std::size_t kMostBlockBytes = 8192;
constexpr std::size_t kLeastTail = 32;
constexpr std::size_t kColumn = 4;  // bytes of an element that become planes together

constexpr std::uint64_t kOnes = 0x0101010101010101;

constexpr std::size_t BlockElements(std::size_t stride) {
  return std::min(kMostBlockElements, kMostBlockBytes / stride / kGroup * kGroup);
}

constexpr std::size_t RoundUp(std::size_t count, std::size_t unit) {
  return (count + unit - 1) / unit * unit;
}

// The difference of each byte from the one `stride` bytes before it, the sign in the lowest bit.
void Differences(const std::uint8_t* bytes, std::size_t stride, std::size_t size,
                 std::uint8_t* differences) {
  for (std::size_t i = 0; i < size; ++i) {
    const auto difference = static_cast<std::int8_t>(bytes[stride + i] - bytes[i]);
    differences[i] = static_cast<std::uint8_t>((difference << 1) ^ (difference >> 7));
  }
}

// Byte k of eight elements' columns, for k = 0 to 3, as four words.
struct Planes {
  std::uint64_t words[kColumn];
};
Planes Transpose(const std::uint8_t* column, std::size_t stride) {
  Planes planes = {};
  for (std::size_t i = 0; i < 8; ++i) {
    const std::uint64_t bytes = io::LoadLittle<std::uint32_t>(column + i * stride);
    for (std::size_t k = 0; k < kColumn; ++k) {
      planes.words[k] |= (bytes >> (8 * k) & 0xff) << (8 * i);
    }
  }
  return planes;
}

// 1 in each byte of `word` that is at least `least`, which is at most 128.
std::uint64_t AtLeast(std::uint64_t word, std::uint64_t least) {
  constexpr std::uint64_t kHighBits = 0x80 * kOnes;
  return (((word & ~kHighBits) + (0x80 - least) * kOnes) | word) >> 7 & kOnes;
}

std::size_t SumOfBytes(std::uint64_t word) {
  return static_cast<std::size_t>(word * kOnes >> 56);
}

// Four bytes of two bits in one byte, the first in the highest bits; in both halves of a word.
std::uint8_t* PackTwoBits(std::uint64_t word, std::uint8_t* out) {
  for (const std::uint32_t four :
       {static_cast<std::uint32_t>(word), static_cast<std::uint32_t>(word >> 32)}) {
    *out++ = static_cast<std::uint8_t>(four * 0x40100401 >> 24);
  }
  return out;
}

// Eight bytes of four bits in four bytes, the first in the high half.
std::uint8_t* PackFourBits(std::uint64_t word, std::uint8_t* out) {
  const std::uint64_t pairs = (word << 4 | word >> 8) & 0x00ff00ff00ff00ff;
  const std::uint64_t quads = (pairs | pairs >> 8) & 0x0000ffff0000ffff;
  io::StoreLittle(out, static_cast<std::uint32_t>(quads | quads >> 16));
  return out + 4;
}

// Sixteen values in few bits each; those too large are all ones there and follow as bytes.
template <std::uint64_t kTooLarge, std::uint8_t* (*Pack)(std::uint64_t, std::uint8_t*)>
std::uint8_t* EncodeGroup(const std::uint64_t (&words)[2], std::uint8_t* out) {
  std::uint64_t large[2];
  for (int i = 0; i < 2; ++i) {
    large[i] = AtLeast(words[i], kTooLarge);
    out = Pack((words[i] & ~(large[i] * 0xff)) | large[i] * kTooLarge, out);
  }
  for (int i = 0; i < 2; ++i) {
    for (int at = 0; at < 64; at += 8) {
      *out = static_cast<std::uint8_t>(words[i] >> at);
      out += large[i] >> at & 1;
    }
  }
  return out;
}

// One plane of a block: for each group two bits that tell its form, then the groups.
std::uint8_t* EncodePlane(const std::uint64_t* words, std::size_t groupCount, std::uint8_t* out) {
  std::uint8_t* const forms = out;
  const std::size_t formBytes = RoundUp(groupCount, 4) / 4;
  std::memset(forms, 0, formBytes);
  out += formBytes;
  for (std::size_t group = 0; group < groupCount; ++group) {
    const std::uint64_t pair[2] = {words[2 * group], words[2 * group + 1]};
    if ((pair[0] | pair[1]) == 0) continue;
    const std::size_t asTwoBits = 4 + SumOfBytes(AtLeast(pair[0], 3) + AtLeast(pair[1], 3));
    const std::size_t asFourBits = 8 + SumOfBytes(AtLeast(pair[0], 15) + AtLeast(pair[1], 15));
    unsigned int form = 3;
    if (asTwoBits < kGroup && asTwoBits <= asFourBits) {
      form = 1;
      out = EncodeGroup<3, PackTwoBits>(pair, out);
    } else if (asFourBits < kGroup) {
      form = 2;
      out = EncodeGroup<15, PackFourBits>(pair, out);
    } else {
      io::StoreLittle(out, pair[0]);
      io::StoreLittle(out + 8, pair[1]);
      out += kGroup;
    }
    forms[group / 4] = static_cast<std::uint8_t>(forms[group / 4] | form << (2 * (group % 4)));
  }
  return out;
}

}  // namespace

std::size_t CompactBound(std::size_t count, std::size_t stride) {
  const std::size_t blocks = (count + BlockElements(stride) - 1) / BlockElements(stride);
  const std::size_t formBytes = kMostBlockElements / kGroup / 4;
  return 1 + blocks * stride * (formBytes + BlockElements(stride)) + std::max(kLeastTail, stride);
}

std::size_t EncodeCompact(const void* elements, std::size_t count, std::size_t stride,
                          std::uint8_t* out) {
  const auto* next = static_cast<const std::uint8_t*>(elements);
  const std::uint8_t* const first = next;
  std::uint8_t* const begin = out;
  *out++ = kVersion;
  std::uint8_t differences[kMostBlockBytes];
  std::uint64_t planes[kColumn][kMostBlockElements / 8];
  const std::size_t blockElements = BlockElements(stride);
  for (std::size_t left = count; left > 0;) {
    const std::size_t used = std::min(left, blockElements);
    const std::size_t size = used * stride;
    const std::size_t groupCount = RoundUp(used, kGroup) / kGroup;
    // The first element of all comes after itself.
    if (next == first) {
      std::memset(differences, 0, stride);
      Differences(next, stride, size - stride, differences + stride);
    } else {
      Differences(next - stride, stride, size, differences);
    }
    std::memset(differences + size, 0, groupCount * kGroup * stride - size);
    for (std::size_t column = 0; column < stride; column += kColumn) {
      for (std::size_t i = 0; i < 2 * groupCount; ++i) {
        const Planes eight = Transpose(differences + 8 * i * stride + column, stride);
        for (std::size_t k = 0; k < kColumn; ++k) planes[k][i] = eight.words[k];
      }
      for (const auto& plane : planes) out = EncodePlane(plane, groupCount, out);
    }
    next += size;
    left -= used;
  }
  const std::size_t tail = std::max(kLeastTail, stride);
  std::memset(out, 0, tail - stride);
  std::memcpy(out + tail - stride, first, stride);
  return static_cast<std::size_t>(out + tail - begin);
}

}  // namespace kelsdk::nc
