#pragma once

#include <cstddef>
#include <cstdint>

namespace kelsdk::alembic {

/// The plain types of an archive, by their stored numbers.
enum class EPlainType : std::uint8_t {
  eBool = 0,
  eUint8,
  eInt8,
  eUint16,
  eInt16,
  eUint32,
  eInt32,
  eUint64,
  eInt64,
  eFloat16,
  eFloat32,
  eFloat64,
  eString,
  eWstring,
};
inline constexpr unsigned kPlainTypeCount = 14;

inline bool IsNumeric(EPlainType type) {
  return type < EPlainType::eString;
}

/// Bytes of one value; of one code unit for strings.
std::size_t PlainTypeSize(EPlainType type);

/// "float32", "uint8", "string" ...
const char* PlainTypeName(EPlainType type);

/// Converts `count` values of a numeric type to the nearest floats; any nonzero bool is 1. `values`
/// need not be aligned. `out` may begin at or before `values` in the same block when a value is no
/// larger than a float and ends where the floats end; otherwise the two do not overlap.
void ConvertToFloats(EPlainType type, const void* values, std::size_t count, float* out);

/// IEEE 754 binary16; every value is exact as a float.
float HalfToFloat(std::uint16_t half);

}  // namespace kelsdk::alembic
