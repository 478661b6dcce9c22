#pragma once

#include <cstddef>
#include <cstdint>

namespace kelsdk::nc {

/// XXH3, 64 bits, no seed, of a run of bytes: the same value on every machine, with the widest
/// vectors that the one it runs on has.
std::uint64_t Checksum(const void* bytes, std::size_t size);

// One build of the same function per instruction set.
std::uint64_t ChecksumBaseline(const void* bytes, std::size_t size);
#if defined(__x86_64__)
std::uint64_t ChecksumAvx2(const void* bytes, std::size_t size);
std::uint64_t ChecksumAvx512(const void* bytes, std::size_t size);
#endif

}  // namespace kelsdk::nc
