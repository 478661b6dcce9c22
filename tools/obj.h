#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/watch.h"

namespace kelcache {

/// Polygons over the points of an object.
struct Faces {
  std::vector<std::uint32_t> counts;   ///< points of each face
  std::vector<std::uint32_t> indices;  ///< point numbers, one face after the other

  bool operator==(const Faces&) const = default;
  bool IsEmpty() const { return counts.empty(); }
  /// Whether every face has its indices and every index a point.
  bool Fit(std::uint64_t points) const;
};

struct ObjMesh {
  std::uint64_t points = 0;
  Faces faces;
};

/// The faces of a Wavefront OBJ file; everything but "v" and "f" lines is passed over. Throws
/// eFailed for a file that can not be read and for faces whose points are not there.
ObjMesh ReadObj(const std::string& file, Watch& watch);

}  // namespace kelcache
