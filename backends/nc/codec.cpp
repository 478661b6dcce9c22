#include "backends/nc/codec.h"

#include <meshoptimizer.h>

#include "backends/nc/compact_encoder.h"

namespace kelsdk::nc {

bool EncodeArray(EType type, const void* array, std::uint32_t elementCount,
                 std::vector<std::uint8_t>* encoded, std::size_t* encodedSize) {
  if (elementCount == 0) return false;
  const std::size_t stride = ElementSize(type);
  const std::size_t bound = CompactBound(elementCount, stride);
  if (encoded->size() < bound) encoded->resize(bound);
  *encodedSize = EncodeCompact(array, elementCount, stride, encoded->data());
  return *encodedSize < ArraySize(type, elementCount);
}

bool DecodeArray(EType type, const std::uint8_t* encoded, std::size_t encodedSize, void* array,
                 std::uint32_t elementCount, io::Error& error) {
  const int result =
      meshopt_decodeVertexBuffer(array, elementCount, ElementSize(type), encoded, encodedSize);
  if (result == 0) return true;
  return error.Set(io::Error::eDamaged, "%zu bytes do not decode to %u elements", encodedSize,
                   elementCount);
}

}  // namespace kelsdk::nc
