#include "tools/channel_kind.h"

namespace kelcache {

bool HoldsVectors(const ChannelSummary& channel) {
  return channel.components == 3 &&
         (channel.value == ValueType::eFloat32 || channel.value == ValueType::eFloat64);
}

bool HoldsPositions(const CacheSummary& summary, const ChannelSummary& channel) {
  if (summary.pc2) return true;
  const std::string said = channel.interpretation.value_or("");
  return HoldsVectors(channel) && (said == "Points" || said == "point");
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
