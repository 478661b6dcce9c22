#include "python/rates.h"

#include <string>

#include "tools/numbers.h"

namespace kelpython {

kelsdk::KelFrameRate RateOf(const pybind11::object& rate) {
  if (rate.is_none()) return {0, 0};
  const std::string text = pybind11::str(rate);
  kelsdk::KelFrameRate taken;
  if (kelsdk::lexical_cast(text, taken)) return taken;
  throw pybind11::value_error("rate: \"" + text +
                              "\" is not a number above 0, or a ratio such as 24000/1001");
}

double NumberOf(const pybind11::object& number) {
  const double value = PyFloat_AsDouble(number.ptr());
  if (value == -1 && PyErr_Occurred() != nullptr) throw pybind11::error_already_set();
  return value;
}

}  // namespace kelpython
