#include "backends/nc/checksum.h"

// Compiled for AVX512: nothing but this function may come from here, so that no inline function of
// another header is built for a machine that lacks it.
#define XXH_INLINE_ALL
#define XXH_NO_PREFETCH  // the arrays have just been read or made
#include <xxhash.h>

namespace kelsdk::nc {

std::uint64_t ChecksumAvx512(const void* bytes, std::size_t size) {
  return XXH3_64bits(bytes, size);
}

}  // namespace kelsdk::nc
