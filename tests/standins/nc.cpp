#include <cstring>

#include "host/KelMemory.h"
#include "tests/standins/recorder.h"

namespace kelsdk {

using test::Note;
using test::TheRecorder;

namespace {

const test::StandInChannel* ChannelAt(unsigned int index) {
  const auto& channels = TheRecorder().channels;
  return index < channels.size() ? &channels[index] : nullptr;
}

bool HandOut(const std::string& text, char** out) {
  *out = static_cast<char*>(KelMalloc(static_cast<unsigned int>(text.size() + 1)));
  if (*out == nullptr) return false;
  std::memcpy(*out, text.c_str(), text.size() + 1);
  return true;
}

template <typename Value>
void Fill(void* data, size_t count) {
  double value = TheRecorder().firstValue;
  for (size_t i = 0; i < count; ++i) static_cast<Value*>(data)[i] = static_cast<Value>(value++);
}

template <typename Value>
void Keep(const void* data, size_t count) {
  const auto* values = static_cast<const Value*>(data);
  TheRecorder().written.assign(values, values + count);
}

}  // namespace

zuCacheFileInterface::zuCacheFileInterface() : impl(nullptr) {
  Note("nc.new");
}
zuCacheFileInterface::~zuCacheFileInterface() {
  Note("nc.delete");
}

bool zuCacheFileInterface::initFileRead(const char* baseName, const char* folder) {
  return Note("nc.initFileRead", baseName, folder);
}

bool zuCacheFileInterface::initFileWrite(const char* folder, const char* baseName,
                                         cacheFileFormat format, const char* dataFileTag,
                                         int ticksPerFrame) {
  return Note("nc.initFileWrite", folder, baseName, int(format), dataFileTag, ticksPerFrame);
}

bool zuCacheFileInterface::addChannel(const char* channelName, const char* interpretation,
                                      zuCacheData::zuCacheDataType dataType,
                                      unsigned int& channelIndex) {
  if (!Note("nc.addChannel", channelName, interpretation, int(dataType))) return false;
  channelIndex = static_cast<unsigned int>(TheRecorder().channels.size());
  TheRecorder().channels.push_back({channelName, interpretation, dataType, 4});
  return true;
}

void zuCacheFileInterface::setOptimizeMultiChannelRead(bool enable) {
  Note("nc.setOptimizeMultiChannelRead", enable);
}

bool zuCacheFileInterface::endFileWrite() {
  return Note("nc.endFileWrite");
}

unsigned int zuCacheFileInterface::numChannels() const {
  return static_cast<unsigned int>(TheRecorder().channels.size());
}

bool zuCacheFileInterface::hasChannelByName(const char* name, unsigned int& channelIndex) const {
  Note("nc.hasChannelByName", name, channelIndex);
  for (unsigned int i = 0; i < numChannels(); ++i) {
    if (TheRecorder().channels[i].name != name) continue;
    channelIndex = i;
    return true;
  }
  return false;
}

bool zuCacheFileInterface::channelName(unsigned int channelIndex, char** name) const {
  if (ChannelAt(channelIndex) == nullptr) return Note("nc.channelName", channelIndex), false;
  // Even a refusal hands a string over: the caller frees it whatever the answer.
  const bool given = HandOut(ChannelAt(channelIndex)->name, name);
  return Note("nc.channelName", channelIndex) && given;
}

bool zuCacheFileInterface::channelInterpretation(unsigned int channelIndex,
                                                 char** interpretation) const {
  return Note("nc.channelInterpretation", channelIndex) && ChannelAt(channelIndex) != nullptr &&
         HandOut(ChannelAt(channelIndex)->interpretation, interpretation);
}

bool zuCacheFileInterface::channelDataType(unsigned int channelIndex,
                                           zuCacheData::zuCacheDataType& dataType) const {
  if (!Note("nc.channelDataType", channelIndex) || ChannelAt(channelIndex) == nullptr) return false;
  dataType = static_cast<zuCacheData::zuCacheDataType>(ChannelAt(channelIndex)->type);
  return true;
}

zuCacheFileInterface::cacheFileFormat zuCacheFileInterface::format() const {
  return static_cast<cacheFileFormat>(TheRecorder().layout);
}

int zuCacheFileInterface::getTicksPerFrame() const {
  return TheRecorder().ticksPerFrame;
}

bool zuCacheFileInterface::getChannelStartTime(unsigned int channelIndex, int& ticks) const {
  ticks = TheRecorder().startTicks;
  return Note("nc.getChannelStartTime", channelIndex);
}

bool zuCacheFileInterface::getChannelEndTime(unsigned int channelIndex, int& ticks) const {
  ticks = TheRecorder().endTicks;
  return Note("nc.getChannelEndTime", channelIndex);
}

unsigned int zuCacheFileInterface::getDataCount(unsigned int channelIndex) {
  Note("nc.getDataCount", channelIndex);
  return TheRecorder().dataCount;
}

bool zuCacheFileInterface::getDataTime(unsigned int channelIndex, unsigned int dataIndex,
                                       int& ticks) {
  if (!Note("nc.getDataTime", channelIndex, dataIndex)) return false;
  ticks = TheRecorder().interval;
  return true;
}

bool zuCacheFileInterface::getNextTimeWithData(unsigned int channelIndex, int ticks,
                                               int& nextTicks) {
  if (!Note("nc.getNextTimeWithData", channelIndex, ticks)) return false;
  nextTicks = 1;
  return true;
}

bool zuCacheFileInterface::getNextTimeWithData(int ticks, int& nextTicks) {
  if (!Note("nc.getNextTimeWithDataOfAny", ticks)) return false;
  nextTicks = 2;
  return true;
}

bool zuCacheFileInterface::isChannelSamplingRegular(unsigned int channelIndex) const {
  Note("nc.isChannelSamplingRegular", channelIndex);
  return TheRecorder().regular;
}

bool zuCacheFileInterface::channelSamplingRate(unsigned int channelIndex, int& ticks) const {
  if (!Note("nc.channelSamplingRate", channelIndex)) return false;
  ticks = TheRecorder().interval;
  return true;
}

bool zuCacheFileInterface::getArrayLengthAtTime(unsigned int channelIndex, int ticks,
                                                unsigned int& elementCount) {
  if (!Note("nc.getArrayLengthAtTime", channelIndex, ticks)) return false;
  elementCount = ChannelAt(channelIndex)->arrayLength;
  return true;
}

bool zuCacheFileInterface::getArrayDataAtTime(unsigned int channelIndex, int ticks, void*& data,
                                              unsigned int& elementCount) {
  if (!Note("nc.getArrayDataAtTime", channelIndex, ticks, elementCount)) return false;
  TheRecorder().lastPointer = data;
  const size_t count = elementCount;
  switch (ChannelAt(channelIndex)->type) {
    case zuCacheData::eNCDoubleArray: Fill<double>(data, count); break;
    case zuCacheData::eNCDoubleVectorArray: Fill<double>(data, 3 * count); break;
    case zuCacheData::eNCInt32Array: Fill<int>(data, count); break;
    case zuCacheData::eNCFloatArray: Fill<float>(data, count); break;
    default: Fill<float>(data, 3 * count); break;
  }
  elementCount = 0xBAD;  // the count is not read back
  return true;
}

bool zuCacheFileInterface::beginWriteAtTime(int ticks) {
  return Note("nc.beginWriteAtTime", ticks);
}

bool zuCacheFileInterface::addArrayData(unsigned int channelIndex, int ticks, void* data,
                                        unsigned int elementCount) {
  TheRecorder().lastPointer = data;
  const size_t count = elementCount;
  switch (ChannelAt(channelIndex)->type) {
    case zuCacheData::eNCDoubleArray: Keep<double>(data, count); break;
    case zuCacheData::eNCDoubleVectorArray: Keep<double>(data, 3 * count); break;
    case zuCacheData::eNCInt32Array: Keep<int>(data, count); break;
    case zuCacheData::eNCFloatArray: Keep<float>(data, count); break;
    default: Keep<float>(data, 3 * count); break;
  }
  return Note("nc.addArrayData", channelIndex, ticks, elementCount);
}

bool zuCacheFileInterface::endWriteAtTime() {
  return Note("nc.endWriteAtTime");
}

unsigned int zuCacheFileInterface::getDataFileCount() const {
  return TheRecorder().fileCount;
}

bool zuCacheFileInterface::getDataFilePath(unsigned int fileIndex, char** path) {
  return Note("nc.getDataFilePath", fileIndex) && HandOut(TheRecorder().filePath, path);
}

bool zuCacheFileInterface::convertFromPc2(const char* pc2FileName, const char* folder,
                                          const char* baseName, cacheFileFormat format,
                                          const char* dataFileTag, int ticksPerFrame) {
  return Note("nc.convertFromPc2", pc2FileName, folder, baseName, int(format), dataFileTag,
              ticksPerFrame);
}

bool zuCacheFileInterface::convertToPc2(const char* pc2FileName, const char* folder,
                                        const char* baseName, unsigned int channelIndex,
                                        int ticksPerFrame) {
  return Note("nc.convertToPc2", pc2FileName, folder, baseName, channelIndex, ticksPerFrame);
}

}  // namespace kelsdk
