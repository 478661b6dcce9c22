#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/timeline.h"
#include "tools/view_mesh.h"

namespace kelcache {

/// Which channels a page shows, and with which faces.
struct SceneOptions {
  std::vector<std::string> channels;  ///< numbers or names; empty: the first with positions
  bool all = false;                   ///< all with positions
  std::string mesh;                   ///< "" or what MeshFile takes
  FrameRange range;
};

/// A channel of positions as an object of the page.
struct SceneObject {
  const ChannelSummary* channel = nullptr;
  std::string name;
  Moments moments;
  std::optional<FaceTrack> faces;
};

/// What a page shows of a cache.
class Scene {
 public:
  /// `source` must outlive it. Throws eFailed, eUsage.
  Scene(Source& source, const SceneOptions& options, Watch& watch);

  std::vector<SceneObject>& objects() { return objects_; }
  const Timeline& timeline() const { return *timeline_; }
  /// What a person should know of the choice.
  const std::vector<std::string>& notes() const { return notes_; }

  /// The moment of a channel that is current at a moment of the timeline; empty for none.
  std::optional<Moment> CurrentAt(std::size_t object, std::size_t moment);
  /// Whether an object has another sample than at an earlier moment of the timeline.
  bool Changes(std::size_t object, std::optional<std::size_t> before, std::size_t moment) const;

 private:
  std::vector<const ChannelSummary*> Choose(const SceneOptions& options);
  void AttachFaces(const std::string& mesh, Watch& watch);

  Source& source_;
  std::vector<SceneObject> objects_;
  std::optional<Timeline> timeline_;
  std::vector<std::string> notes_;
};

}  // namespace kelcache
