#include "tools/source.h"

#include <charconv>

#include "tools/output.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;
using kelsdk::KelTime;

std::string MomentText(const Moment& moment) {
  if (moment.frame) return "frame " + RoundedText(*moment.frame);
  return RoundedText(moment.seconds) + " s";
}

}  // namespace

Source::Source(const std::string& file, Format format, double frameRate)
    : cache_(file, format), everyFrame_(frameRate > 0) {
  cache_.OpenForRead();
  summary_ = Summarise(cache_, frameRate);
}

ElementType Source::TypeOf(const ChannelSummary& channel) {
  auto type = KelCache::eNCFloatVectorArray;
  if (cache_.format() == KelCache::eNCFormat) {
    cache_->GetChannelDataType(channel.index, type, nullptr);
  } else if (channel.components != 3) {
    type = KelCache::eNCFloatArray;
  }
  return static_cast<ElementType>(type);
}

Moments Source::MomentsOf(const ChannelSummary& channel) {
  return {cache_, summary_, channel, everyFrame_};
}

const float* Source::FetchFloats(const ChannelSummary& channel, const Moment& moment,
                                 unsigned int* length) {
  float* values = nullptr;
  if (!cache_->Read(&values, *length, moment.time, static_cast<unsigned int>(channel.index))) {
    throw Failed(cache_.file(), MomentText(moment) + ": " + cache_.FetchProblem(moment.sample));
  }
  return values;
}

FetchedArray Source::Fetch(const ChannelSummary& channel, const Moment& moment) {
  const ElementType type = TypeOf(channel);
  const bool isFloat = kelsdk::GetTypeIsFloat(type);
  if (cache_.format() != KelCache::eNCFormat || isFloat) {
    unsigned int length = 0;
    const float* values = FetchFloats(channel, moment, &length);
    return {values, length / kelsdk::GetTypeLength(type)};
  }
  // Read in the channel's own type: a float would lose bits.
  FetchedArray fetched;
  KelTime time = moment.time;
  const size_t perElement = kelsdk::GetTypeLength(type);
  bool read = cache_->GetChannelPointCount(channel.index, time, fetched.elements, nullptr);
  if (read) {
    array_.resize(std::max<size_t>(1, fetched.elements * perElement));
    fetched.data = array_.data();
    read = type == kelsdk::zuCacheData::eNCInt32Array
               ? cache_->Read(channel.index, time, reinterpret_cast<int*>(array_.data()),
                              fetched.elements, nullptr)
               : cache_->Read(channel.index, time, array_.data(), fetched.elements, nullptr);
  }
  if (!read) throw Failed(cache_.file(), MomentText(moment) + ": could not be read");
  return fetched;
}

const ChannelSummary& Source::FindChannel(const std::string& numberOrName) const {
  for (const ChannelSummary& channel : summary_.channels) {
    if (channel.name == numberOrName) return channel;
  }
  int number = -1;
  const char* end = numberOrName.data() + numberOrName.size();
  if (std::from_chars(numberOrName.data(), end, number).ptr != end) {
    throw ToolError(eUsage, summary_.file + ": no channel \"" + numberOrName + '"');
  }
  return summary_.ChannelAt(number);
}

}  // namespace kelcache
