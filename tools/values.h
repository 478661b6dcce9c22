#pragma once

#include <bit>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "backends/AlembicInterface.h"
#include "backends/zuCacheFileInterface.h"
#include "host/KelNearestFloat.h"

namespace kelcache {

/// The types that values are stored in, of all formats.
using ValueType = AlembicChannelInfo::EValue;
using ElementType = kelsdk::zuCacheData::zuCacheDataType;

/// Calls `visit` with a null pointer to the C++ type of the values.
template <typename Visit>
decltype(auto) VisitType(ValueType type, Visit&& visit) {
  switch (type) {
    case ValueType::eBool:
    case ValueType::eUint8: return visit(static_cast<const std::uint8_t*>(nullptr));
    case ValueType::eInt8: return visit(static_cast<const std::int8_t*>(nullptr));
    case ValueType::eUint16: return visit(static_cast<const std::uint16_t*>(nullptr));
    case ValueType::eInt16: return visit(static_cast<const std::int16_t*>(nullptr));
    case ValueType::eUint32: return visit(static_cast<const std::uint32_t*>(nullptr));
    case ValueType::eInt32: return visit(static_cast<const std::int32_t*>(nullptr));
    case ValueType::eUint64: return visit(static_cast<const std::uint64_t*>(nullptr));
    case ValueType::eInt64: return visit(static_cast<const std::int64_t*>(nullptr));
    case ValueType::eFloat64: return visit(static_cast<const double*>(nullptr));
    case ValueType::eFloat32: break;
  }
  return visit(static_cast<const float*>(nullptr));
}

/// The values of one sample in the type that they are stored in; they belong to whoever fetched
/// them.
struct Array {
  const void* values = nullptr;
  ValueType type = ValueType::eFloat32;
  unsigned int elements = 0;
  unsigned int components = 1;  ///< values an element

  std::size_t Count() const { return std::size_t{elements} * components; }

  /// Calls `visit` with a pointer to the values.
  template <typename Visit>
  decltype(auto) Visited(Visit&& visit) const {
    return VisitType(type, [&](auto* none) { return visit(static_cast<decltype(none)>(values)); });
  }
};

std::size_t SizeOf(ValueType type);

/// The float or double nearest to a double.
template <typename Value>
Value NearestValue(double value) {
  if constexpr (sizeof(Value) == sizeof(float)) {
    return kelsdk::KelNearestFloat(value);
  } else {
    return value;
  }
}

template <typename Value>
bool AnyIsNotFinite(const Value* values, std::size_t count) {
  using Word = std::conditional_t<sizeof(Value) == sizeof(float), std::uint32_t, std::uint64_t>;
  constexpr Word kInfinity = std::bit_cast<Word>(std::numeric_limits<Value>::infinity());
  Word any = 0;  // in integers, whose order is free, so that the loop is vectorised
  for (std::size_t i = 0; i < count; ++i) {
    any |= (std::bit_cast<Word>(values[i]) & kInfinity) == kInfinity ? 1U : 0U;
  }
  return any != 0;
}

/// "float32[3]", "int32": the one spelling of what elements are made of.
std::string TypeText(ValueType type, unsigned int components);

/// Memory for one array after another, which only grows; suitably aligned for any type.
class Room {
 public:
  /// From here on arrays of just so many bytes go to the lender's memory; null ends that.
  void Borrow(void* memory, std::size_t bytes) {
    borrowed_ = memory;
    borrowedBytes_ = bytes;
  }

  void* For(const Array& array) {
    const std::size_t bytes = array.Count() * SizeOf(array.type);
    if (borrowed_ != nullptr && bytes == borrowedBytes_) return borrowed_;
    const std::size_t doubles = bytes / sizeof(double) + 1;
    if (memory_.size() < doubles) memory_.resize(doubles);
    return memory_.data();
  }

 private:
  std::vector<double> memory_;
  void* borrowed_ = nullptr;
  std::size_t borrowedBytes_ = 0;
};

bool IsInteger(ValueType type);

/// "0.1", "-7", "18446744073709551615": reads back to the same value; "nan", "inf", "-inf".
std::string ValueText(const Array& array, std::size_t value);

/// The values as the nearest floats, in `floats` where they are stored in another type.
const float* AsFloats(const Array& array, std::vector<float>* floats);

/// Values as a channel of an NC cache holds them.
class ElementConverter {
 public:
  /// The array in an element type: itself where the values are of that type already. Null, with the
  /// value in words, when one of them is not exactly a value of the element type.
  const void* Convert(const Array& array, ElementType type, std::string* problem);

 private:
  std::vector<std::int32_t> integers_;
  std::vector<double> doubles_;
};

/// The element type that holds values of a type exactly, where it does not depend on the values.
ElementType ElementTypeOf(ValueType type, unsigned int components);

/// Whether an element type holds values of a type only where they are small enough.
inline bool IsWideInteger(ValueType type) {
  return type == ValueType::eUint32 || type == ValueType::eInt64 || type == ValueType::eUint64;
}

/// The element types that can be written, by the text of what they are made of.
extern const std::map<std::string, ElementType> kElementTypes;

/// The type of an element type's values.
ValueType ValueTypeOf(ElementType type);

}  // namespace kelcache
