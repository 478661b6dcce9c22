#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelcache {

/// The smallest and largest finite value of each component. Values that are not finite are counted
/// and left out.
struct Bounds {
  std::vector<float> low;
  std::vector<float> high;
  std::uint64_t notFinite = 0;

  void Add(const Bounds& other);
  /// "(x, y, z)"; "-" for a component without a finite value.
  std::string LowText() const;
  std::string HighText() const;
};

/// @param values  elements x components floats
Bounds BoundsOf(const float* values, unsigned int elements, unsigned int components);

/// The largest distance that an element moved from one moment to the other.
float LargestMove(const float* before, const float* after, unsigned int elements,
                  unsigned int components);

}  // namespace kelcache
