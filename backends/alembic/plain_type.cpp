#include "backends/alembic/plain_type.h"

#include <bit>

#include "backends/io/endian.h"
#include "host/KelNearestFloat.h"

namespace kelsdk::alembic {
namespace {

struct TypeEntry {
  const char* name;
  std::size_t size;
};

constexpr TypeEntry kTypes[kPlainTypeCount] = {
    {"bool", 1},    {"uint8", 1},   {"int8", 1},   {"uint16", 2},  {"int16", 2},
    {"uint32", 4},  {"int32", 4},   {"uint64", 8}, {"int64", 8},   {"float16", 2},
    {"float32", 4}, {"float64", 8}, {"string", 1}, {"wstring", 4},
};

template <typename T>
float NearestFloat(T value) {
  return static_cast<float>(value);
}

template <>
float NearestFloat(double value) {
  return KelNearestFloat(value);
}

// What is larger than a float never shares memory with the floats, which lets several be converted
// at once.
template <typename T>
void ConvertWideRun(const void* values, std::size_t count, float* __restrict out) {
  const auto* __restrict bytes = static_cast<const unsigned char*>(values);
  for (std::size_t i = 0; i < count; ++i) {
    out[i] = NearestFloat(io::LoadLittle<T>(bytes + i * sizeof(T)));
  }
}

template <typename T>
void ConvertRun(const void* values, std::size_t count, float* out) {
  const auto* bytes = static_cast<const unsigned char*>(values);
  for (std::size_t i = 0; i < count; ++i) {
    out[i] = NearestFloat(io::LoadLittle<T>(bytes + i * sizeof(T)));
  }
}

void ConvertBools(const void* values, std::size_t count, float* out) {
  const auto* bytes = static_cast<const unsigned char*>(values);
  for (std::size_t i = 0; i < count; ++i) out[i] = bytes[i] != 0 ? 1.0f : 0.0f;
}

void ConvertHalves(const void* values, std::size_t count, float* out) {
  const auto* bytes = static_cast<const unsigned char*>(values);
  for (std::size_t i = 0; i < count; ++i) {
    out[i] = HalfToFloat(io::LoadLittle<std::uint16_t>(bytes + i * 2));
  }
}

}  // namespace

std::size_t PlainTypeSize(EPlainType type) {
  return kTypes[static_cast<unsigned>(type)].size;
}

const char* PlainTypeName(EPlainType type) {
  return kTypes[static_cast<unsigned>(type)].name;
}

float HalfToFloat(std::uint16_t half) {
  const std::uint32_t sign = (half & 0x8000u) << 16;
  const std::uint32_t exponent = (half >> 10) & 0x1fu;
  const std::uint32_t fraction = half & 0x3ffu;
  if (exponent == 0) {
    const float magnitude = static_cast<float>(fraction) * 0x1p-24f;
    return sign != 0 ? -magnitude : magnitude;
  }
  // 112 is the difference of the two biases.
  const std::uint32_t wide = exponent == 31 ? 0xffu : exponent + 112;
  return std::bit_cast<float>(sign | wide << 23 | fraction << 13);
}

void ConvertToFloats(EPlainType type, const void* values, std::size_t count, float* out) {
  switch (type) {
    case EPlainType::eBool: return ConvertBools(values, count, out);
    case EPlainType::eUint8: return ConvertRun<std::uint8_t>(values, count, out);
    case EPlainType::eInt8: return ConvertRun<std::int8_t>(values, count, out);
    case EPlainType::eUint16: return ConvertRun<std::uint16_t>(values, count, out);
    case EPlainType::eInt16: return ConvertRun<std::int16_t>(values, count, out);
    case EPlainType::eUint32: return ConvertRun<std::uint32_t>(values, count, out);
    case EPlainType::eInt32: return ConvertRun<std::int32_t>(values, count, out);
    case EPlainType::eUint64: return ConvertWideRun<std::uint64_t>(values, count, out);
    case EPlainType::eInt64: return ConvertWideRun<std::int64_t>(values, count, out);
    case EPlainType::eFloat16: return ConvertHalves(values, count, out);
    case EPlainType::eFloat32: return ConvertRun<float>(values, count, out);
    case EPlainType::eFloat64: return ConvertWideRun<double>(values, count, out);
    case EPlainType::eString:
    case EPlainType::eWstring: return;
  }
}

}  // namespace kelsdk::alembic
