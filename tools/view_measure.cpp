#include "tools/view_measure.h"

#include <algorithm>
#include <cmath>

namespace kelcache {
namespace {

struct Moves {
  double largest = 0;
  double sum = 0;
  std::uint64_t points = 0;
  std::uint64_t moving = 0;
};

// Of points that are finite in both.
void AddMoves(const float* before, const float* after, unsigned int points, Moves* moves) {
  for (std::size_t i = 0; i < std::size_t{points} * 3; i += 3) {
    const double x = double(after[i]) - double(before[i]);
    const double y = double(after[i + 1]) - double(before[i + 1]);
    const double z = double(after[i + 2]) - double(before[i + 2]);
    const double move = std::sqrt(x * x + y * y + z * z);
    if (!std::isfinite(move)) continue;
    moves->largest = std::max(moves->largest, move);
    moves->sum += move;
    ++moves->points;
    if (move > 0) ++moves->moving;
  }
}

double Diagonal(const Bounds& box) {
  double squares = 0;
  for (std::size_t k = 0; k < box.low.size(); ++k) {
    const double side = double(box.high[k]) - double(box.low[k]);
    if (std::isfinite(side) && side > 0) squares += side * side;
  }
  return std::sqrt(squares);
}

// An object as it is at a moment.
struct State {
  std::vector<float> points;
  Bounds box;
};

class Measuring {
 public:
  Measuring(Source& source, Scene& scene) : source_(source), scene_(scene) {
    figures_.objects.resize(scene.objects().size());
    states_.resize(scene.objects().size());
    lastFaces_.resize(scene.objects().size());
  }

  void Visit(std::size_t moment) {
    Moves moves;
    const auto before = moment == 0 ? std::nullopt : std::optional(moment - 1);
    for (std::size_t i = 0; i < states_.size(); ++i) {
      if (scene_.Changes(i, before, moment)) Take(i, *scene_.CurrentAt(i, moment), &moves);
    }
    MomentFigures at;
    Bounds box;
    for (const State& state : states_) {
      at.elements += state.points.size() / 3;
      box.Add(state.box);
    }
    at.notFinite = box.notFinite;
    at.boxSize = Diagonal(box);
    if (moves.points != 0) {
      at.largestMove = moves.largest;
      at.meanMove = moves.sum / double(moves.points);
    }
    if (moves.moving != 0) at.meanOfMoving = moves.sum / double(moves.moving);
    figures_.moments.push_back(at);
  }

  SceneFigures Finish() { return std::move(figures_); }

 private:
  void Take(std::size_t object, const Moment& moment, Moves* moves) {
    SceneObject& shown = scene_.objects()[object];
    State& state = states_[object];
    ObjectFigures& figures = figures_.objects[object];
    const Array array = source_.Fetch(*shown.channel, moment);
    const float* const points = AsFloats(array, &floats_);
    if (state.points.size() == array.Count()) {
      AddMoves(state.points.data(), points, array.elements, moves);
    }
    state.points.assign(points, points + array.Count());
    state.box = BoundsOf(points, array.elements, 3);
    figures_.box.Add(state.box);
    figures.points = std::max(figures.points, array.elements);
    if (array.type == ValueType::eFloat64) CoverRounding(state.box);
    if (shown.faces) TakeFaces(object, shown.faces->At(moment, array.elements));
  }

  void TakeFaces(std::size_t object, const Faces& faces) {
    ObjectFigures& figures = figures_.objects[object];
    if (faces == lastFaces_[object]) return;
    lastFaces_[object] = faces;
    figures.triangles = std::max(figures.triangles, TrianglesOf(faces));
    figures.edges = std::max(figures.edges, EdgesOf(faces));
  }

  void CoverRounding(const Bounds& box) {
    for (std::size_t k = 0; k < box.low.size(); ++k) {
      const float most = std::max(std::fabs(box.low[k]), std::fabs(box.high[k]));
      if (!std::isfinite(most)) continue;
      const double next = std::nextafter(most, INFINITY);
      figures_.rounding = std::max(figures_.rounding, (next - double(most)) / 2);
    }
  }

  Source& source_;
  Scene& scene_;
  SceneFigures figures_;
  std::vector<State> states_;
  std::vector<Faces> lastFaces_;
  std::vector<float> floats_;
};

}  // namespace

void MomentFigures::Cover(const MomentFigures& other) {
  largestMove = std::fmax(largestMove, other.largestMove);  // a number rather than none
  meanMove = std::fmax(meanMove, other.meanMove);
  boxSize = std::max(boxSize, other.boxSize);
  elements = std::max(elements, other.elements);
  notFinite = std::max(notFinite, other.notFinite);
}

SceneFigures Measure(Source& source, Scene& scene, Watch& watch) {
  Measuring measuring(source, scene);
  for (std::size_t moment = 0; moment < scene.timeline().Count(); ++moment) {
    watch.ThrowIfInterrupted();
    measuring.Visit(moment);
    watch.Show(moment + 1);
  }
  return measuring.Finish();
}

std::uint64_t TrianglesOf(const Faces& faces) {
  std::uint64_t triangles = 0;
  for (const std::uint32_t count : faces.counts) triangles += std::max(count, 2U) - 2;
  return triangles;
}

// A face of two points is one edge, and one of a single point none.
std::uint64_t EdgesOf(const Faces& faces) {
  std::uint64_t edges = 0;
  for (const std::uint32_t count : faces.counts) edges += count > 2 ? count : count / 2;
  return edges;
}

}  // namespace kelcache
