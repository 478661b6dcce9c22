#pragma once

#include "tools/tool_error.h"

namespace kelcache {

// SIGINT (Ctrl-C), SIGTERM and SIGHUP. One that the command was started to ignore, as under nohup,
// stays ignored. A second signal of the same kind always ends the process at once.

/// From here on such a signal ends the command at once, with a word and the signal's exit status:
/// right for verbs that leave nothing behind.
void EndOnInterrupts();

/// From here on such a signal is only noted, so that a verb can put away what it has half made. May
/// be called again, from any thread.
void CatchInterrupts();
bool WasInterrupted();
/// 128 + the signal that was caught.
EExit InterruptStatus();
/// Throws InterruptStatus() when a signal was caught.
void ThrowIfInterrupted();

}  // namespace kelcache
