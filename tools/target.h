#pragma once

#include <string>

namespace kelcache {

/// Throws eFailed when there is something of this name and `force` is not given.
void ExpectFree(const std::string& file, bool force);

/// A cache that a verb is about to write.
class Target {
 public:
  /// Throws eFailed when the file, or a data file of an NC cache of that name, exists and `force`
  /// is not given, and in any case for what bears the name of a data file and is none.
  Target(const std::string& file, bool force);

  /// Throws eUsage when the file is the same as `source`.
  void ExpectOtherThan(const std::string& source) const;

 private:
  std::string file_;
};

}  // namespace kelcache
