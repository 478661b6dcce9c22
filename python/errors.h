#pragma once

#include <pybind11/pybind11.h>

#include <chrono>
#include <optional>
#include <string>

namespace kelpython {

namespace py = pybind11;

/// Lets the library's errors arrive as kelcache.CacheError, ValueError and MemoryError.
void TranslateErrors();

/// A path as the system takes it: str, bytes or os.PathLike. Throws TypeError and ValueError.
std::string PathOf(py::handle path);
/// What a path of the system, or a text out of a file, is in Python, whatever its bytes.
py::str TextOf(const std::string& path);
py::object TextOrNone(const std::optional<std::string>& text);

/// Hands signals to Python while a long call runs without the interpreter lock, so that Ctrl-C ends
/// it: at most every 50 ms, and cheap between.
class SignalWatch {
 public:
  /// Without the lock. Throws what a signal's handler raised, such as KeyboardInterrupt.
  void Look();

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point last_ = Clock::now();
};

}  // namespace kelpython
