#pragma once

#include <pybind11/numpy.h>

#include <string>
#include <vector>

#include "python/errors.h"
#include "tools/values.h"

namespace kelpython {

/// What a caller wants values delivered as: floats, or the type that they are stored in.
py::dtype DTypeOf(kelcache::ValueType type);

/// The type that `dtype` asks for: None and float32 are floats, "native" and the channel's own type
/// what is stored. Throws TypeError for any other.
kelcache::ValueType AskedType(const py::object& dtype, kelcache::ValueType stored);

/// (elements, components), or (elements,) for one component; `samples` of them where that is not
/// null.
std::vector<py::ssize_t> ShapeOf(unsigned int elements, unsigned int components,
                                 const py::ssize_t* samples = nullptr);

/// The type of an array that a caller gave to be filled: floats or what is stored. Throws TypeError
/// for another, for another byte order and for what is no array.
kelcache::ValueType TypeToFill(const py::object& out, kelcache::ValueType stored);

/// The elements that an array to be filled has room for; 0 also for one of another form.
unsigned int ElementsToFill(const py::object& out, unsigned int components);

/// Throws ValueError for an array to be filled that has another shape.
void ExpectShape(const py::object& out, const std::vector<py::ssize_t>& shape);

/// The memory of an array to be filled. Throws ValueError for one that cannot be written to or is
/// not C-contiguous.
void* MemoryToFill(const py::object& out);

/// An array that a caller gave to be written, in the element type of its channel: kept alive, with
/// what had to be converted.
class GivenArray {
 public:
  /// Throws TypeError for values of another kind, ValueError for another shape, for integers that
  /// do not fit and for more than 32 bits count.
  GivenArray(const std::string& channel, const py::object& values, kelcache::ElementType type);

  const kelcache::Array& array() const { return array_; }

 private:
  py::array kept_;
  kelcache::ElementConverter converter_;
  kelcache::Array array_;
};

}  // namespace kelpython
