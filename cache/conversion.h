#pragma once

#include <type_traits>

#include "cache/checks.h"
#include "host/KelNearestFloat.h"

namespace kelsdk {

/// How an array of a caller meets a channel: as it is, through one conversion, or not at all.
enum class EPath { eRefused, eDirect, eConverting };

template <typename Value>
EPath PathOf(zuCacheData::zuCacheDataType type) {
  switch (type) {
    case zuCacheData::eNCDoubleArray:
    case zuCacheData::eNCDoubleVectorArray:
      if constexpr (std::is_same_v<Value, double>) return EPath::eDirect;
      if constexpr (std::is_same_v<Value, float>) return EPath::eConverting;
      break;
    case zuCacheData::eNCFloatArray:
    case zuCacheData::eNCFloatVectorArray:
      if constexpr (std::is_same_v<Value, float>) return EPath::eDirect;
      if constexpr (std::is_same_v<Value, double>) return EPath::eConverting;
      break;
    case zuCacheData::eNCInt32Array:
      if constexpr (std::is_same_v<Value, int>) return EPath::eDirect;
      break;
    case zuCacheData::eNCUnknownData:
    case zuCacheData::eNCDouble: break;
  }
  return EPath::eRefused;
}

/// The type at the other end of a converting path: floats for doubles, doubles for floats.
template <typename Value>
using ConvertedTo = std::conditional_t<std::is_same_v<Value, double>, float, double>;

/// Converts in index order: a narrowing to the nearest float, a widening exactly.
template <typename From, typename To>
void ConvertValues(const From* from, To* to, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    if constexpr (std::is_same_v<From, double> && std::is_same_v<To, float>) {
      to[i] = KelNearestFloat(from[i]);
    } else {
      to[i] = static_cast<To>(from[i]);
    }
  }
}

}  // namespace kelsdk
