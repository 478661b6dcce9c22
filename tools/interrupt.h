#pragma once

namespace kelcache {

/// From here on Ctrl-C (and SIGTERM) only sets a flag, so that a verb can put away what it has half
/// made.
void CatchInterrupts();
bool WasInterrupted();
/// Throws eFailed when the flag is set.
void ThrowIfInterrupted();

}  // namespace kelcache
