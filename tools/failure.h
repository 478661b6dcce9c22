#pragma once

#include <string>

#include "tools/tool_error.h"

namespace kelcache {

/// A caught exception as the user is told of it.
struct Failure {
  EExit status = eFailed;
  std::string line;
};

/// The exception that is being handled; for use in catch blocks only. What fails after a signal
/// was caught, failed because of it.
Failure CurrentFailure();

}  // namespace kelcache
