#include "tools/view_mesh.h"

#include <filesystem>
#include <utility>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

constexpr std::string_view kPositions = "/P";

const ChannelSummary* FindNamed(const ChannelIndex& channels, const std::string& name) {
  const auto found = channels.find(name);
  return found == channels.end() ? nullptr : found->second;
}

bool TakeIndices(const Array& array, std::vector<std::uint32_t>* values) {
  values->resize(array.Count());
  return array.Visited([&](const auto* stored) {
    for (std::size_t i = 0; i < array.Count(); ++i) {
      if constexpr (std::is_integral_v<std::remove_cvref_t<decltype(*stored)>>) {
        const auto value = static_cast<std::int64_t>(+stored[i]);
        if (!std::in_range<std::uint32_t>(value)) return false;
        (*values)[i] = static_cast<std::uint32_t>(value);
      } else {
        return false;
      }
    }
    return true;
  });
}

// The part of "ARCHIVE.abc:/object" before the colon.
std::string ArchiveIn(const std::string& name) {
  const std::size_t colon = name.rfind(":/");
  return colon == std::string::npos ? name : name.substr(0, colon);
}

bool IsPartOf(const std::string& channel, const std::string& object) {
  return object.empty() || channel == object || channel.starts_with(object + '/');
}

}  // namespace

ChannelIndex IndexChannels(const CacheSummary& summary) {
  ChannelIndex index;
  for (const ChannelSummary& channel : summary.channels) {
    if (channel.name) index.emplace(*channel.name, &channel);
  }
  return index;
}

std::optional<FaceTrack> FaceTrack::OfArchive(Source& source, const ChannelIndex& channels,
                                              const ChannelSummary& positions) {
  const std::string name = positions.name.value_or("");
  if (source.summary().format != kelsdk::KelCache::eAlembicFormat || !name.ends_with(kPositions)) {
    return {};
  }
  const std::string folder = name.substr(0, name.size() - kPositions.size());
  const ChannelSummary* const counts = FindNamed(channels, folder + "/.faceCounts");
  const ChannelSummary* const indices = FindNamed(channels, folder + "/.faceIndices");
  if (counts == nullptr || indices == nullptr) return {};
  return FaceTrack(source, *counts, *indices);
}

void FaceTrack::Read(const Moment& moment) {
  const bool isConstant = counts_->samples == 1 && indices_->samples == 1;
  if (isConstant && wasRead_) return;
  wasRead_ = true;
  // The time picks the sample of a channel that has others than the points.
  Moment at = moment;
  at.sample.reset();
  const bool taken = TakeIndices(source_->FetchInto(*counts_, at, &room_), &faces_.counts) &&
                     TakeIndices(source_->FetchInto(*indices_, at, &room_), &faces_.indices);
  if (!taken) faces_.indices = {UINT32_MAX};  // fits nothing
}

const Faces& FaceTrack::At(const Moment& moment, unsigned int points) {
  static const Faces kNone;
  if (source_ != nullptr) Read(moment);
  if (faces_.Fit(points)) return faces_;
  misfit_ = true;
  return kNone;
}

MeshFile::MeshFile(const std::string& name, Watch& watch) : name_(name) {
  const std::string file = ArchiveIn(name);
  if (std::filesystem::path(file).extension() == ".obj") {
    obj_ = ReadObj(name, watch);
    return;
  }
  const Format format = FormatOf(file, "");
  if (format != kelsdk::KelCache::eAlembicFormat) {
    throw ToolError(eUsage, name + ": --mesh takes FILE.obj or ARCHIVE.abc");
  }
  archive_ = std::make_unique<Source>(file, format);
  channels_ = IndexChannels(archive_->summary());
  if (file.size() < name.size()) object_ = name.substr(file.size() + 1);
}

std::optional<Faces> MeshFile::For(unsigned int points) {
  if (archive_ == nullptr) {
    return obj_.points == points ? std::optional(obj_.faces) : std::nullopt;
  }
  for (const ChannelSummary& channel : archive_->summary().channels) {
    auto faces = FaceTrack::OfArchive(*archive_, channels_, channel);
    if (!faces || channel.points != points || !IsPartOf(*channel.name, object_)) continue;
    const Faces& first = faces->At(archive_->MomentsOf(channel).At(0), points);
    if (!first.IsEmpty()) return first;
  }
  return {};
}

std::string MeshFile::WhatItHas() const {
  if (archive_ == nullptr) return name_ + " has " + std::to_string(obj_.points) + " points";
  std::string has;
  for (const ChannelSummary& channel : archive_->summary().channels) {
    if (!FaceTrack::OfArchive(*archive_, channels_, channel) || !IsPartOf(*channel.name, object_))
      continue;
    has += (has.empty() ? " has a mesh of " : ", of ") + std::to_string(channel.points.value_or(0));
  }
  return has.empty() ? name_ + " holds no mesh" : name_ + has + " points";
}

}  // namespace kelcache
