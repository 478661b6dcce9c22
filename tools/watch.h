#pragma once

#include <cstdint>
#include <string>

namespace kelcache {

/// Follows a verb's work: shows how far it is, hears what is to be said of it and may end it.
class Watch {
 public:
  Watch() = default;
  virtual ~Watch() = default;
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// Work on so many samples begins, on its way into `file` or out of it.
  virtual void Begin(std::uint64_t total, const std::string& file) = 0;
  /// So many samples are done. Throws as ThrowIfInterrupted does.
  virtual void Show(std::uint64_t done) = 0;
  virtual void End() = 0;
  /// Throws to end the work, which then puts away what it has half made.
  virtual void ThrowIfInterrupted() = 0;
  /// A line for a person on what was done.
  virtual void Note(const std::string& line) = 0;
};

}  // namespace kelcache
