#pragma once

#include "python/errors.h"

namespace kelpython {

void BindWriter(py::module_& module);

}  // namespace kelpython
