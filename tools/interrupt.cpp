#include "tools/interrupt.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <mutex>
#include <string_view>

namespace kelcache {
namespace {

std::atomic<int> caught{0};  // the signal
static_assert(std::atomic<int>::is_always_lock_free);

std::atomic<bool> onTerminal{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void Note(int signal) {
  caught = signal;
}

// Calls nothing that a signal handler may not.
void End(int signal) {
  // Takes a progress bar off the line first.
  const std::string_view words =
      onTerminal ? "\r\033[Kkelcache: interrupted\n" : "kelcache: interrupted\n";
  if (::write(STDERR_FILENO, words.data(), words.size()) < 0) {
    // There is nobody left to tell.
  }
  ::_exit(128 + signal);
}

void Handle(void (*handler)(int)) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action = {};
    if (::sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    ::sigaction(signal, &action, nullptr);
  }
}

}  // namespace

void EndOnInterrupts() {
  onTerminal = ::isatty(STDERR_FILENO) == 1;
  Handle(End);
}

void CatchInterrupts() {
  // Once: a signal that was caught must stay deadly the second time.
  static std::once_flag once;
  std::call_once(once, Handle, Note);
}

bool WasInterrupted() {
  return caught != 0;
}

EExit InterruptStatus() {
  return static_cast<EExit>(128 + caught);
}

void ThrowIfInterrupted() {
  if (WasInterrupted()) throw ToolError(InterruptStatus(), "interrupted");
}

}  // namespace kelcache
