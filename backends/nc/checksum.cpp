#include "backends/nc/checksum.h"

#define XXH_INLINE_ALL
#define XXH_NO_PREFETCH  // the arrays have just been read or made
#include <xxhash.h>

namespace kelsdk::nc {

std::uint64_t ChecksumBaseline(const void* bytes, std::size_t size) {
  return XXH3_64bits(bytes, size);
}

std::uint64_t Checksum(const void* bytes, std::size_t size) {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512f")) return ChecksumAvx512(bytes, size);
  if (__builtin_cpu_supports("avx2")) return ChecksumAvx2(bytes, size);
#endif
  return ChecksumBaseline(bytes, size);
}

}  // namespace kelsdk::nc
