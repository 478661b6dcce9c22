#pragma once

#include "python/errors.h"

namespace kelpython {

/// The verbs of the command as functions that return dictionaries, of which the package makes data
/// classes.
void BindVerbs(py::module_& module);

}  // namespace kelpython
