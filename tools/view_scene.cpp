#include "tools/view_scene.h"

#include <algorithm>

#include "tools/channel_kind.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

constexpr std::size_t kMostObjects = 65535;  // the page numbers them with 16 bits

std::string NameOf(const CacheSummary& summary, const ChannelSummary& channel) {
  const std::string name = channel.name.value_or("");
  if (summary.format != kelsdk::KelCache::eAlembicFormat || !name.ends_with("/.geom/P")) {
    return name.empty() ? "points" : name;
  }
  return name.substr(0, name.size() - std::string_view("/.geom/P").size());
}

}  // namespace

std::vector<const ChannelSummary*> Scene::Choose(const SceneOptions& options) {
  const CacheSummary& summary = source_.summary();
  std::vector<const ChannelSummary*> chosen;
  for (const std::string& name : options.channels) {
    const ChannelSummary& channel = summary.FindChannel(name);
    if (!HoldsVectors(channel)) {
      throw ToolError(eUsage, summary.file + ": channel " + name +
                                  " does not hold vectors of 3 floating-point numbers");
    }
    if (std::find(chosen.begin(), chosen.end(), &channel) == chosen.end()) {
      chosen.push_back(&channel);
    }
  }
  if (!chosen.empty()) return chosen;
  chosen = PositionChannels(summary);
  std::erase_if(chosen, [](const ChannelSummary* channel) { return channel->samples == 0; });
  if (chosen.empty()) throw Failed(summary.file, "has no channel of positions with samples");
  if (chosen.size() > 1 && !options.all) {
    notes_.push_back("1 of " + std::to_string(chosen.size()) +
                     " channels of positions is shown; --all shows them all");
    chosen.resize(1);
  }
  return chosen;
}

void Scene::AttachFaces(const std::string& mesh, Watch& watch) {
  const ChannelIndex channels = IndexChannels(source_.summary());
  for (SceneObject& object : objects_) {
    object.faces = FaceTrack::OfArchive(source_, channels, *object.channel);
  }
  if (mesh.empty()) return;
  MeshFile file(mesh, watch);
  std::size_t fitted = 0;
  std::size_t without = 0;
  for (SceneObject& object : objects_) {
    if (object.faces) continue;
    std::optional<Faces> faces = file.For(object.channel->points.value_or(0));
    if (!faces) {
      ++without;
      continue;
    }
    object.faces.emplace(std::move(*faces));
    ++fitted;
  }
  const std::string& cache = source_.summary().file;
  if (fitted == 0 && without == 0) {
    throw ToolError(eUsage, cache + ": brings its own faces; --mesh is not for it");
  }
  const std::string wanted = std::to_string(objects_.front().channel->points.value_or(0));
  if (fitted == 0) {
    throw Failed(mesh, "does not fit: " + file.WhatItHas() + ", " + cache + " has " + wanted);
  }
  if (without != 0) {
    notes_.push_back(std::to_string(without) + " of " + std::to_string(objects_.size()) +
                     " objects have no faces: " + file.WhatItHas());
  }
}

Scene::Scene(Source& source, const SceneOptions& options, Watch& watch) : source_(source) {
  const CacheSummary& summary = source.summary();
  if (summary.pc2 && summary.pc2->points == 0) throw Failed(summary.file, "has no points");
  const std::vector<const ChannelSummary*> chosen = Choose(options);
  if (chosen.size() > kMostObjects) {
    throw Failed(summary.file, "has " + std::to_string(chosen.size()) +
                                   " channels of positions, a page shows 65535; name some by "
                                   "--channel");
  }
  for (const ChannelSummary* channel : chosen) {
    objects_.push_back({channel, NameOf(summary, *channel), source.MomentsOf(*channel), {}});
  }
  timeline_.emplace(source, chosen, options.range, watch);
  if (timeline_->Count() == 0) {
    throw Failed(summary.file, options.range.IsOpen() ? "has no samples"
                                                      : "no sample lies in the frames asked for");
  }
  AttachFaces(options.mesh, watch);
}

std::optional<Moment> Scene::CurrentAt(std::size_t object, std::size_t moment) {
  const auto sample = timeline_->SampleAt(timeline_->ClockOf(object), moment);
  if (!sample) return {};
  return objects_[object].moments.At(*sample);
}

bool Scene::Changes(std::size_t object, std::optional<std::size_t> before,
                    std::size_t moment) const {
  const std::size_t clock = timeline_->ClockOf(object);
  const auto sample = timeline_->SampleAt(clock, moment);
  return sample && (!before || timeline_->SampleAt(clock, *before) != sample);
}

}  // namespace kelcache
