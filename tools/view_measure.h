#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "tools/bounds.h"
#include "tools/view_scene.h"

namespace kelcache {

/// What is known of one moment, over all objects.
struct MomentFigures {
  double largestMove = NAN;  ///< of a finite point since the sample before; NaN without one
  double meanMove = NAN;
  double meanOfMoving = NAN;  ///< of the points that move at all
  double boxSize = 0;         ///< diagonal
  std::uint64_t elements = 0;
  std::uint64_t notFinite = 0;  ///< values

  /// Stands for both from here on: the larger of each.
  void Cover(const MomentFigures& other);
};

struct ObjectFigures {
  unsigned int points = 0;      ///< of the largest sample
  std::uint64_t triangles = 0;  ///< of the largest faces
  std::uint64_t edges = 0;
};

struct SceneFigures {
  std::vector<MomentFigures> moments;
  std::vector<ObjectFigures> objects;
  Bounds box;           ///< of everything
  double rounding = 0;  ///< how far values stored as doubles lie from the floats taken for them
};

/// Reads everything once. Throws eFailed and what the watch throws.
SceneFigures Measure(Source& source, Scene& scene, Watch& watch);

/// Triangles and edges that the page draws of faces.
std::uint64_t TrianglesOf(const Faces& faces);
std::uint64_t EdgesOf(const Faces& faces);

}  // namespace kelcache
