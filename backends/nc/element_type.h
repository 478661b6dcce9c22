#pragma once

#include <cstddef>
#include <cstdint>

#include "backends/zuCacheFileInterface.h"

namespace kelsdk::nc {

using EType = zuCacheData::zuCacheDataType;

/// Of every element type, by its number.
struct ElementTypeTraits {
  const char* name;          ///< in a description
  std::size_t elementSize;   ///< bytes of an element; 0 where the type holds no arrays
  std::size_t elementWidth;  ///< values of an element
};

constexpr ElementTypeTraits kElementTypes[] = {
    {"Unknown", 0, 0},           {"Double", 0, 0},
    {"DoubleArray", 8, 1},       {"DoubleVectorArray", 24, 3},
    {"Int32Array", 4, 1},        {"FloatArray", 4, 1},
    {"FloatVectorArray", 12, 3},
};
constexpr std::uint32_t kElementTypeCount = sizeof kElementTypes / sizeof kElementTypes[0];

constexpr bool IsElementType(std::uint32_t type) {
  return type < kElementTypeCount;
}

/// Bytes of an element; 0 for the types that may be declared but never written.
constexpr std::size_t ElementSize(EType type) {
  const auto index = static_cast<std::uint32_t>(type);
  return IsElementType(index) ? kElementTypes[index].elementSize : 0;
}

/// Values of an element; 0 likewise.
constexpr std::size_t ElementWidth(EType type) {
  const auto index = static_cast<std::uint32_t>(type);
  return IsElementType(index) ? kElementTypes[index].elementWidth : 0;
}

/// Bytes of a value; 0 likewise.
constexpr std::size_t WordSize(EType type) {
  return ElementWidth(type) != 0 ? ElementSize(type) / ElementWidth(type) : 0;
}

constexpr bool IsInteger(EType type) {
  return type == zuCacheData::eNCInt32Array;
}

/// Bytes of an array: 32 bits times at most 24, so it cannot wrap.
constexpr std::uint64_t ArraySize(EType type, std::uint32_t elementCount) {
  return std::uint64_t{elementCount} * ElementSize(type);
}

}  // namespace kelsdk::nc
