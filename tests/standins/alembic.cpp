#include "backends/AlembicInterface.h"
#include "tests/standins/recorder.h"

using kelsdk::test::Note;
using kelsdk::test::TheRecorder;

AlembicInterface::AlembicInterface(bool readOnly) : impl(nullptr) {
  Note("abc.new", readOnly);
}
AlembicInterface::~AlembicInterface() {
  Note("abc.delete");
}

bool AlembicInterface::Open(const char* fileName, int flags) {
  return Note("abc.Open", fileName, flags);
}

int AlembicInterface::GetNumChannels() const {
  return TheRecorder().alembicChannels;
}

bool AlembicInterface::GetChannelIdFromName(const char* channelName, unsigned int& channelId) {
  if (!Note("abc.GetChannelIdFromName", channelName, channelId)) return false;
  channelId = 1;
  return true;
}

bool AlembicInterface::GetChannelName(unsigned int channelIndex, kelsdk::KelString& channelName) {
  if (!Note("abc.GetChannelName", channelIndex)) return false;
  channelName = "/body/.geom/P";
  return true;
}

unsigned int AlembicInterface::GetChannelNumSamples(unsigned int channelIndex) {
  Note("abc.GetChannelNumSamples", channelIndex);
  return TheRecorder().dataCount;
}

bool AlembicInterface::GetChannelStartEnd(unsigned int channelIndex, kelsdk::KelTime& start,
                                          kelsdk::KelTime& end) {
  start.Set(11);
  end.Set(22);
  return Note("abc.GetChannelStartEnd", channelIndex);
}

unsigned int AlembicInterface::GetChannelTypeSize(unsigned int channelIndex) {
  Note("abc.GetChannelTypeSize", channelIndex);
  return TheRecorder().typeSize;
}

unsigned int AlembicInterface::GetChannelDataLength(unsigned int channelIndex) {
  Note("abc.GetChannelDataLength", channelIndex);
  return TheRecorder().dataLength;
}

unsigned int AlembicInterface::GetChannelBufferLength(unsigned int channelIndex) {
  Note("abc.GetChannelBufferLength", channelIndex);
  return TheRecorder().bufferLength;
}

bool AlembicInterface::GetChannelTypeIsFloat(unsigned int channelIndex) {
  Note("abc.GetChannelTypeIsFloat", channelIndex);
  return TheRecorder().isFloat;
}

bool AlembicInterface::GetChannelBuffer(unsigned int channelIndex, float* buffer,
                                        unsigned int count, const kelsdk::KelTime& time) {
  TheRecorder().lastPointer = buffer;
  if (!Note("abc.GetChannelBuffer", channelIndex, count, time.Get())) return false;
  double value = TheRecorder().firstValue;
  for (unsigned int i = 0; i < count * TheRecorder().dataLength; ++i) {
    buffer[i] = static_cast<float>(value++);
  }
  return true;
}
