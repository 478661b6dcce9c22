// The interface as the cache object uses it: every query of every channel, and its data before,
// within and after its range. Names must lead back to channels, and a fetch must fill its buffer
// and no more.
#include <algorithm>
#include <cmath>
#include <vector>

#include "backends/AlembicInterface.h"
#include "fuzz/support.h"

using namespace kelsdk;
using kelsdk::fuzz::Require;

namespace {

constexpr unsigned int kMostChannels = 200;
constexpr unsigned int kMostElements = 64 * 1024;
constexpr float kUntouched = -12345.5f;

void Fetch(AlembicInterface& archive, unsigned int channel, unsigned int count, KelTime time) {
  const std::size_t values = std::size_t{count} * archive.GetChannelDataLength(channel);
  std::vector<float> buffer(values + 1, kUntouched);
  archive.GetChannelBuffer(channel, buffer.data(), count, time);
  Require(buffer[values] == kUntouched);
}

// A sample by its number: what it says of itself agrees, and it fills no more than its room.
void UseSample(AlembicInterface& archive, unsigned int channel, unsigned int sample,
               const AlembicChannelInfo& info) {
  unsigned int first = 0;
  unsigned int last = 0;
  unsigned long long identity = 0;
  if (archive.GetSampleRun(channel, sample, first, last, identity)) {
    Require(first <= sample && sample <= last && last < info.sampleCount);
  }
  double seconds = 0;
  unsigned int length = 0;
  Require(archive.GetSampleTime(channel, sample, seconds));
  const bool sound = archive.GetSampleLength(channel, sample, length);
  Require(!sound || length <= info.elementCount);
  const unsigned int room = std::min(sound ? length : 1, kMostElements);
  unsigned int count = room;
  // The widest values are of eight bytes.
  std::vector<double> values(std::size_t{room} * archive.GetChannelDataLength(channel) + 1);
  const bool read = archive.ReadSample(channel, sample, values.data(), count);
  Require(!read || (sound && count == length && count <= room));
  Require(values.back() == 0);
}

void UseChannel(AlembicInterface& archive, unsigned int channel) {
  KelString name;
  Require(archive.GetChannelName(channel, name));
  unsigned int found = 0;
  KelString foundName;
  Require(archive.GetChannelIdFromName(name, found) && archive.GetChannelName(found, foundName));
  Require(name == foundName);
  AlembicChannelInfo info;
  Require(archive.GetChannelInfo(channel, info));
  const unsigned int length = archive.GetChannelBufferLength(channel);
  Require(length == info.elementCount);
  Require(archive.GetChannelTypeSize(channel) % archive.GetChannelDataLength(channel) == 0);
  KelTime start;
  KelTime end;
  Require(archive.GetChannelStartEnd(channel, start, end) && start <= end);
  const unsigned int count = std::min(length, kMostElements);
  const KelTime middle(start.Get() / 2 + end.Get() / 2);
  for (const KelTime time : {KelTime(-1), start, middle, end}) {
    Fetch(archive, channel, count, time);
  }
  for (const unsigned int sample : {0U, info.sampleCount / 2, info.sampleCount - 1}) {
    UseSample(archive, channel, sample, info);
  }
  unsigned int at = 0;
  Require(archive.GetSampleAtTime(channel, middle, at) && at < info.sampleCount);
  Require(!archive.GetSampleLength(channel, info.sampleCount, at));
  Fetch(archive, channel, 1, start);
  Fetch(archive, channel, count + 3, end);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string path = kelsdk::fuzz::FileOf(bytes, size);
  AlembicInterface archive(true);
  if (!archive.Open(path.c_str(), 1)) {
    Require(archive.GetErrorString()[0] != 0 && archive.GetNumChannels() == 0);
    return 0;
  }
  const auto count = static_cast<unsigned int>(archive.GetNumChannels());
  for (unsigned int i = 0; i < std::min(count, kMostChannels); ++i) UseChannel(archive, i);
  Require(archive.GetChannelBufferLength(count) == 0);
  return 0;
}
