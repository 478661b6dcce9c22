#pragma once

#include <vector>

namespace kelcache {

/// A square sheet of points in the x-z plane that moves in waves along y. The same points come out
/// at every run.
class Sheet {
 public:
  explicit Sheet(unsigned int points);

  /// Points x 3 doubles, valid until the next call.
  double* At(unsigned int frame);

 private:
  unsigned int points_;
  unsigned int width_;  // points in a row
  std::vector<double> values_;
  std::vector<double> rowWave_;
};

}  // namespace kelcache
