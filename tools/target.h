#pragma once

#include <string>

namespace kelcache {

/// A file that a verb is about to write.
class Target {
 public:
  /// Throws eFailed when the file exists and `force` is not given.
  Target(const std::string& file, bool force);

  /// Throws eUsage when the file is the same as `source`.
  void ExpectOtherThan(const std::string& source) const;

 private:
  std::string file_;
};

}  // namespace kelcache
