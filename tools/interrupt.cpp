#include "tools/interrupt.h"

#include <atomic>
#include <csignal>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void Note(int /*signal*/) {
  interrupted = true;
}

}  // namespace

void CatchInterrupts() {
  std::signal(SIGINT, Note);
  std::signal(SIGTERM, Note);
}

bool WasInterrupted() {
  return interrupted;
}

void ThrowIfInterrupted() {
  if (interrupted) throw ToolError(eFailed, "interrupted");
}

}  // namespace kelcache
