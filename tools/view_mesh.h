#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "tools/obj.h"
#include "tools/source.h"

namespace kelcache {

/// The channels of a cache, which must outlive it, by their names.
using ChannelIndex = std::unordered_map<std::string_view, const ChannelSummary*>;
ChannelIndex IndexChannels(const CacheSummary& summary);

/// The faces of one object over time.
class FaceTrack {
 public:
  /// Those of an archive's mesh, which may change from sample to sample. Empty for points that are
  /// no mesh's. `source` must outlive it.
  static std::optional<FaceTrack> OfArchive(Source& source, const ChannelIndex& channels,
                                            const ChannelSummary& positions);

  /// The same at all times.
  explicit FaceTrack(Faces faces) : faces_(std::move(faces)) {}

  /// Those at a moment of the points; none where they do not fit so many points. Valid until the
  /// next call. Throws eFailed.
  const Faces& At(const Moment& moment, unsigned int points);

  /// Whether faces were found that did not fit.
  bool misfit() const { return misfit_; }

 private:
  FaceTrack(Source& source, const ChannelSummary& counts, const ChannelSummary& indices)
      : source_(&source), counts_(&counts), indices_(&indices) {}
  void Read(const Moment& moment);

  Source* source_ = nullptr;
  const ChannelSummary* counts_ = nullptr;
  const ChannelSummary* indices_ = nullptr;
  Room room_;
  Faces faces_;
  bool wasRead_ = false;
  bool misfit_ = false;
};

/// What --mesh names: a file of faces for caches that bring none.
class MeshFile {
 public:
  /// @param name  "FILE.obj", "ARCHIVE.abc" or "ARCHIVE.abc:/object". Throws eFailed, eUsage.
  MeshFile(const std::string& name, Watch& watch);

  /// The faces for so many points: of an archive without an object those of its first mesh that
  /// fits. Empty when nothing fits.
  std::optional<Faces> For(unsigned int points);

  /// "cube.obj has 98 points": why nothing fits.
  std::string WhatItHas() const;

 private:
  std::string name_;
  ObjMesh obj_;
  std::unique_ptr<Source> archive_;
  ChannelIndex channels_;
  std::string object_;
};

}  // namespace kelcache
