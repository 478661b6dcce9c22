#pragma once

#include <pybind11/pybind11.h>

#include "host/KelTime.h"

namespace kelpython {

/// A frame rate as a caller gives it: a number, a fractions.Fraction or a text such as
/// "24000/1001", by the rules of the command line; None is not valid. Throws ValueError.
kelsdk::KelFrameRate RateOf(const pybind11::object& rate);

/// A number of seconds or frames; throws TypeError for what is none, a text too.
double NumberOf(const pybind11::object& number);

}  // namespace kelpython
