#include "tools/channel_kind.h"

#include <map>

#include "tools/numbers.h"

namespace kelcache {

bool HoldsVectors(const ChannelSummary& channel) {
  return channel.components == 3 &&
         (channel.value == ValueType::eFloat32 || channel.value == ValueType::eFloat64);
}

std::optional<ERole> RoleByInterpretation(const ChannelSummary& channel) {
  static const std::map<std::string, ERole> kRoles = {
      {"point", ERole::ePoints},     {"points", ERole::ePoints},
      {"position", ERole::ePoints},  {"positions", ERole::ePoints},
      {"vector", ERole::eVectors},   {"vectors", ERole::eVectors},
      {"velocity", ERole::eVectors}, {"velocities", ERole::eVectors},
      {"normal", ERole::eNormals},   {"normals", ERole::eNormals},
      {"box", ERole::eBoxes},        {"rgb", ERole::eNone},
      {"rgba", ERole::eNone},        {"color", ERole::eNone},
      {"colors", ERole::eNone},      {"colour", ERole::eNone},
      {"colours", ERole::eNone},     {"uv", ERole::eNone},
      {"uvw", ERole::eNone},         {"id", ERole::eNone},
  };
  const auto role = kRoles.find(Lowered(channel.interpretation.value_or("")));
  return role == kRoles.end() ? std::nullopt : std::optional(role->second);
}

bool HoldsPositions(const CacheSummary& summary, const ChannelSummary& channel) {
  if (summary.pc2) return true;
  return HoldsVectors(channel) && RoleByInterpretation(channel) == ERole::ePoints;
}

std::vector<const ChannelSummary*> PositionChannels(const CacheSummary& summary) {
  std::vector<const ChannelSummary*> positions;
  const ChannelSummary* firstVectors = nullptr;
  for (const ChannelSummary& channel : summary.channels) {
    if (HoldsPositions(summary, channel)) positions.push_back(&channel);
    if (firstVectors == nullptr && HoldsVectors(channel)) firstVectors = &channel;
  }
  if (positions.empty() && firstVectors != nullptr) positions.push_back(firstVectors);
  return positions;
}

}  // namespace kelcache
