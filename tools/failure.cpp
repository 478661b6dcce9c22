#include "tools/failure.h"

#include <new>

#include "tools/interrupt.h"

namespace kelcache {

Failure CurrentFailure() {
  if (WasInterrupted()) return {InterruptStatus(), "interrupted"};
  try {
    throw;
  } catch (const ToolError& error) {
    return {error.status(), error.what()};
  } catch (const std::bad_alloc&) {
    return {eFailed, "not enough memory"};
  } catch (const std::exception& error) {
    return {eFailed, error.what()};
  }
}

}  // namespace kelcache
