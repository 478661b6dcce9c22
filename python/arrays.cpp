#include "python/arrays.h"

#include <cstdint>

#include "cache/KelCache.h"

namespace kelpython {
namespace {

using kelcache::ValueType;

int NumberOf(const py::dtype& dtype) {
  return py::detail::array_descriptor_proxy(dtype.ptr())->type_num;
}

bool IsInNativeOrder(const py::dtype& dtype) {
  const char order = py::detail::array_descriptor_proxy(dtype.ptr())->byteorder;
  return order == '=' || order == '|';
}

// NumPy's number of a type.
int NumberOf(ValueType type) {
  if (type == ValueType::eBool) return py::detail::npy_format_descriptor<bool>::value;
  return kelcache::VisitType(type, [](auto* none) {
    using Value = std::remove_cv_t<std::remove_pointer_t<decltype(none)>>;
    return int{py::detail::npy_format_descriptor<Value>::value};
  });
}

bool IsOf(const py::dtype& dtype, ValueType type) {
  return IsInNativeOrder(dtype) && NumberOf(dtype) == NumberOf(type);
}

std::string TextOfType(const py::dtype& dtype) {
  return py::str(static_cast<const py::handle&>(dtype));
}

std::string TextOfShape(const py::ssize_t* shape, std::size_t dimensions) {
  std::string text = "(";
  for (std::size_t i = 0; i < dimensions; ++i) {
    text += (i != 0 ? ", " : "") + std::to_string(shape[i]);
  }
  return text + (dimensions == 1 ? ",)" : ")");
}

bool HasShape(const py::array& array, unsigned int components) {
  if (components == 1) return array.ndim() == 1;
  return array.ndim() == 2 && array.shape(1) == static_cast<py::ssize_t>(components);
}

// Rounding to the nearest float is what the channel's type says; another kind of number is a
// mistake.
bool IsKindFor(const py::dtype& dtype, bool integers) {
  if (integers) return dtype.kind() == 'i' || dtype.kind() == 'u';
  return dtype.kind() == 'f' && dtype.itemsize() <= py::ssize_t{sizeof(double)};
}

template <typename Value>
py::array AsContiguous(const py::array& array) {
  using Contiguous = py::array_t<Value, py::array::c_style | py::array::forcecast>;
  auto contiguous = Contiguous::ensure(array);
  if (!contiguous) throw py::error_already_set();
  return contiguous;
}

}  // namespace

py::dtype DTypeOf(ValueType type) {
  if (type == ValueType::eBool) return py::dtype::of<bool>();
  return kelcache::VisitType(type, [](auto* none) {
    return py::dtype::of<std::remove_cv_t<std::remove_pointer_t<decltype(none)>>>();
  });
}

ValueType AskedType(const py::object& dtype, ValueType stored) {
  if (dtype.is_none()) return ValueType::eFloat32;
  if (py::isinstance<py::str>(dtype) && dtype.cast<std::string>() == "native") return stored;
  const py::dtype asked = py::dtype::from_args(dtype);
  for (const ValueType type : {ValueType::eFloat32, stored}) {
    if (IsOf(asked, type)) return type;
  }
  throw py::type_error("dtype is \"native\" or float32, not " + TextOfType(asked));
}

std::vector<py::ssize_t> ShapeOf(unsigned int elements, unsigned int components,
                                 const py::ssize_t* samples) {
  std::vector<py::ssize_t> shape;
  shape.reserve(3);
  if (samples != nullptr) shape.push_back(*samples);
  shape.push_back(elements);
  if (components != 1) shape.push_back(components);
  return shape;
}

ValueType TypeToFill(const py::object& out, ValueType stored) {
  if (!py::isinstance<py::array>(out)) throw py::type_error("out is no numpy.ndarray");
  const py::dtype dtype = py::reinterpret_borrow<py::array>(out).dtype();
  for (const ValueType type : {ValueType::eFloat32, stored}) {
    if (IsOf(dtype, type)) return type;
  }
  std::string wanted = "float32";
  if (stored != ValueType::eFloat32) wanted += " or " + kelcache::TypeText(stored, 1);
  throw py::type_error("out is of " + TextOfType(dtype) + ", not of " + wanted);
}

unsigned int ElementsToFill(const py::object& out, unsigned int components) {
  const auto array = py::reinterpret_borrow<py::array>(out);
  if (!HasShape(array, components) || array.shape(0) > py::ssize_t{UINT32_MAX}) return 0;
  return static_cast<unsigned int>(array.shape(0));
}

void ExpectShape(const py::object& out, const std::vector<py::ssize_t>& shape) {
  const auto array = py::reinterpret_borrow<py::array>(out);
  const auto dimensions = static_cast<std::size_t>(array.ndim());
  if (dimensions == shape.size() && std::equal(shape.begin(), shape.end(), array.shape())) return;
  throw py::value_error("out has shape " + TextOfShape(array.shape(), dimensions) + ", not " +
                        TextOfShape(shape.data(), shape.size()));
}

void* MemoryToFill(const py::object& out) {
  constexpr int kAligned = py::detail::npy_api::NPY_ARRAY_ALIGNED_;
  const auto array = py::reinterpret_borrow<py::array>(out);
  if (!array.writeable()) throw py::value_error("out is read-only");
  if ((array.flags() & py::array::c_style) == 0 || (array.flags() & kAligned) == 0) {
    throw py::value_error("out is not C-contiguous and aligned");
  }
  return const_cast<void*>(array.data());
}

GivenArray::GivenArray(const std::string& channel, const py::object& values,
                       kelcache::ElementType type) {
  kept_ = py::array::ensure(values);
  if (!kept_) throw py::type_error(channel + ": is no array");
  const unsigned int components = kelsdk::GetTypeLength(type);
  const ValueType value = kelcache::ValueTypeOf(type);
  const bool integers = kelcache::IsInteger(value);
  if (!IsKindFor(kept_.dtype(), integers)) {
    throw py::type_error(channel + ": an array of " + TextOfType(kept_.dtype()) +
                         " for a channel of " + kelcache::TypeText(value, components));
  }
  if (!HasShape(kept_, components)) {
    throw py::value_error(channel + ": shape " +
                          TextOfShape(kept_.shape(), static_cast<std::size_t>(kept_.ndim())) +
                          " is not " + (components == 1 ? "(n,)" : "(n, 3)"));
  }
  // Before anything is converted: a huge array may be a view of one element.
  const std::uint64_t most = UINT32_MAX / (kelcache::SizeOf(value) * components);
  if (static_cast<std::uint64_t>(kept_.shape(0)) > most) {
    throw py::value_error(channel + ": " + std::to_string(kept_.shape(0)) +
                          " elements take more bytes than the 4294967295 that 32 bits count");
  }
  const auto elements = static_cast<unsigned int>(kept_.shape(0));
  if (!integers) {
    kept_ = value == ValueType::eFloat64 ? AsContiguous<double>(kept_) : AsContiguous<float>(kept_);
    array_ = {kept_.data(), value, elements, components};
    return;
  }
  const bool isUnsigned = kept_.dtype().kind() == 'u';
  if (IsOf(kept_.dtype(), ValueType::eInt32)) {
    kept_ = AsContiguous<std::int32_t>(kept_);
    array_ = {kept_.data(), value, elements, components};
    return;
  }
  kept_ = isUnsigned ? AsContiguous<std::uint64_t>(kept_) : AsContiguous<std::int64_t>(kept_);
  std::string problem;
  const kelcache::Array wide{kept_.data(), isUnsigned ? ValueType::eUint64 : ValueType::eInt64,
                             elements, components};
  array_ = {converter_.Convert(wide, type, &problem), value, elements, components};
  if (array_.values == nullptr) {
    throw py::value_error(channel + ": " + problem + " does not fit 32 bits");
  }
}

}  // namespace kelpython
