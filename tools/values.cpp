#include "tools/values.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "host/KelNearestFloat.h"
#include "tools/numbers.h"

namespace kelcache {
namespace {

using kelsdk::zuCacheData;

template <typename Value>
std::string TextOf(Value value) {
  if constexpr (std::is_floating_point_v<Value>) {
    return ShortestText(value);
  } else {
    return std::to_string(+value);
  }
}

template <typename Value>
float NearestFloat(Value value) {
  if constexpr (std::is_same_v<Value, double>) return kelsdk::KelNearestFloat(value);
  return static_cast<float>(value);
}

// Whether a value survives the way into another type and back.
template <typename To, typename From>
bool Fits(From value) {
  if constexpr (std::is_same_v<To, double>) {
    if constexpr (std::is_integral_v<From> && sizeof(From) == 8) {
      // 2^53 is the last of all the whole numbers that a double has.
      constexpr From kMost = From{1} << 53;
      if (value <= kMost && (std::is_unsigned_v<From> || value >= From(0) - kMost)) return true;
      const double converted = static_cast<double>(value);
      // The double nearest to the largest value lies beyond its type.
      return converted < double(std::numeric_limits<From>::max()) &&
             static_cast<From>(converted) == value;
    }
    return true;
  } else if constexpr (std::is_floating_point_v<From>) {
    return false;
  } else {
    return std::in_range<To>(value);
  }
}

template <typename To>
const void* ConvertAll(const Array& array, std::vector<To>* converted, std::string* problem) {
  converted->resize(std::max<std::size_t>(array.Count(), 1));
  const bool whole = array.Visited([&](const auto* values) {
    for (std::size_t i = 0; i < array.Count(); ++i) {
      if (!Fits<To>(values[i])) {
        *problem = TextOf(values[i]);
        return false;
      }
      // NOLINTNEXTLINE(bugprone-signed-char-misuse): an int8 is a number here
      (*converted)[i] = static_cast<To>(values[i]);
    }
    return true;
  });
  return whole ? converted->data() : nullptr;
}

}  // namespace

const std::map<std::string, ElementType> kElementTypes = {
    {"float64", zuCacheData::eNCDoubleArray},
    {"float64[3]", zuCacheData::eNCDoubleVectorArray},
    {"int32", zuCacheData::eNCInt32Array},
    {"float32", zuCacheData::eNCFloatArray},
    {"float32[3]", zuCacheData::eNCFloatVectorArray},
};

std::size_t SizeOf(ValueType type) {
  return VisitType(type, [](const auto* none) { return sizeof(*none); });
}

std::string TypeText(ValueType type, unsigned int components) {
  constexpr const char* kNames[] = {"bool",  "uint8",  "int8",  "uint16",  "int16",  "uint32",
                                    "int32", "uint64", "int64", "float32", "float64"};
  const std::string name = kNames[type];
  return components == 1 ? name : name + "[" + std::to_string(components) + "]";
}

bool IsInteger(ValueType type) {
  return type != ValueType::eFloat32 && type != ValueType::eFloat64;
}

std::string ValueText(const Array& array, std::size_t value) {
  return array.Visited([&](const auto* values) { return TextOf(values[value]); });
}

const float* AsFloats(const Array& array, std::vector<float>* floats) {
  if (array.type == ValueType::eFloat32) return static_cast<const float*>(array.values);
  if (floats->size() < array.Count()) floats->resize(array.Count());
  array.Visited([&](const auto* values) {
    for (std::size_t i = 0; i < array.Count(); ++i) (*floats)[i] = NearestFloat(values[i]);
  });
  return floats->data();
}

ValueType ValueTypeOf(ElementType type) {
  switch (type) {
    case zuCacheData::eNCInt32Array: return ValueType::eInt32;
    case zuCacheData::eNCUnknownData:
    case zuCacheData::eNCDouble:
    case zuCacheData::eNCDoubleArray:
    case zuCacheData::eNCDoubleVectorArray: return ValueType::eFloat64;
    case zuCacheData::eNCFloatArray:
    case zuCacheData::eNCFloatVectorArray: break;
  }
  return ValueType::eFloat32;
}

ElementType ElementTypeOf(ValueType type, unsigned int components) {
  const bool isVector = components == 3;
  switch (type) {
    case ValueType::eFloat32:
      return isVector ? zuCacheData::eNCFloatVectorArray : zuCacheData::eNCFloatArray;
    case ValueType::eFloat64:
      return isVector ? zuCacheData::eNCDoubleVectorArray : zuCacheData::eNCDoubleArray;
    default: return zuCacheData::eNCInt32Array;
  }
}

const void* ElementConverter::Convert(const Array& array, ElementType type, std::string* problem) {
  const ValueType wanted = ValueTypeOf(type);
  if (array.type == wanted) return array.values;
  if (wanted == ValueType::eInt32) return ConvertAll(array, &integers_, problem);
  if (wanted == ValueType::eFloat64) return ConvertAll(array, &doubles_, problem);
  *problem = "values of another type";
  return nullptr;
}

}  // namespace kelcache
