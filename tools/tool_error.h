#pragma once

#include <stdexcept>
#include <string>

namespace kelcache {

/// Exit status of the command. A command that a signal ended has 128 + the signal's number, as
/// shells count. Of several, the largest is the worst.
enum EExit : int {
  eDone = 0,
  eFound = 1,   ///< a check found damage or differences
  eUsage = 2,   ///< wrong usage
  eFailed = 3,  ///< a file could not be opened, read or written
};

/// Ends a verb: the exit status and one line for standard error.
class ToolError : public std::runtime_error {
 public:
  ToolError(EExit status, const std::string& line)
      : std::runtime_error(line), status_(status), reason_(line) {}
  /// What happened to a file: the line is "file: reason".
  ToolError(EExit status, const std::string& file, const std::string& reason)
      : std::runtime_error(file + ": " + reason), status_(status), file_(file), reason_(reason) {}
  EExit status() const { return status_; }
  /// "" for none.
  const std::string& file() const { return file_; }
  const std::string& reason() const { return reason_; }

 private:
  EExit status_;
  std::string file_;
  std::string reason_;
};

inline ToolError Failed(const std::string& file, const std::string& reason) {
  return {eFailed, file, reason};
}

}  // namespace kelcache
