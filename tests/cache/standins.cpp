// Without the operations on times and data files: what the object makes of those shows in answers.
#include "tests/cache/standins.h"

#include <algorithm>
#include <cstring>

#include "cache/KelCache.h"
#include "cache/internal.h"

namespace kelsdk {

using test::answers;
using test::Note;

// Where a count is not to be read back.
constexpr unsigned int kGarbage = 0xBAD;

zuPointCache2IO::zuPointCache2IO() : impl(nullptr) {
  Note(__func__);
}
zuPointCache2IO::~zuPointCache2IO() {
  Note(__func__);
}
bool zuPointCache2IO::initialize(const char* fileName, openMode mode) {
  version = answers.version;
  pointCount = answers.elements;
  return Note(__func__, fileName, int(mode));
}
bool zuPointCache2IO::beginWriteData(int points, int samples, float start, float rate) {
  pointCount = static_cast<unsigned int>(points);
  return Note(__func__, points, samples, start, rate);
}
bool zuPointCache2IO::readSample(unsigned int sample, float* buffer, unsigned int& points) {
  std::fill_n(buffer, std::min(points, pointCount) * 3, static_cast<float>(sample));
  return Note(__func__, sample, std::exchange(points, kGarbage));
}
bool zuPointCache2IO::writeSample(int sample, float* buffer) {
  return Note(__func__, sample, buffer[0], buffer[pointCount * 3 - 1]);
}
const char* zuPointCache2IO::errorString() const {
  return "PC2 words";
}
bool zuPointCache2IO::endWriteData() {
  return Note(__func__);
}
void zuPointCache2IO::discardWrite() {
  Note(__func__);
}

zuCacheFileInterface::zuCacheFileInterface() : impl(nullptr) {
  Note(__func__);
}
zuCacheFileInterface::~zuCacheFileInterface() {
  Note(__func__);
}
const char* zuCacheFileInterface::errorString() const {
  return "NC words";
}
bool zuCacheFileInterface::initFileRead(const char* baseName, const char* folder) {
  return Note(__func__, baseName, folder);
}
bool zuCacheFileInterface::initFileWrite(const char* folder, const char* baseName,
                                         cacheFileFormat format, const char* tag, int ticks) {
  return Note(__func__, folder, baseName, int(format), tag, ticks);
}
bool zuCacheFileInterface::addChannel(const char* name, const char* interpretation,
                                      zuCacheData::zuCacheDataType type, unsigned int& channel) {
  channel = answers.channels - 1;
  return Note(__func__, name, interpretation, int(type));
}
void zuCacheFileInterface::setOptimizeMultiChannelRead(bool enable) {
  Note(__func__, enable);
}
bool zuCacheFileInterface::endFileWrite() {
  return Note(__func__);
}
unsigned int zuCacheFileInterface::numChannels() const {
  return answers.channels;
}
bool zuCacheFileInterface::hasChannelByName(const char*, unsigned int&) const {
  return false;
}
bool zuCacheFileInterface::channelName(unsigned int, char** name) const {
  *name = static_cast<char*>(KelMalloc(1));  // the caller's, whatever the answer
  return false;
}
bool zuCacheFileInterface::channelInterpretation(unsigned int, char**) const {
  return false;
}
zuCacheFileInterface::cacheFileFormat zuCacheFileInterface::format() const {
  return eSingleFile;
}
bool zuCacheFileInterface::channelDataType(unsigned int channel,
                                           zuCacheData::zuCacheDataType& type) const {
  type = static_cast<zuCacheData::zuCacheDataType>(answers.type);
  return Note(__func__, channel);
}
bool zuCacheFileInterface::getArrayLengthAtTime(unsigned int channel, int ticks,
                                                unsigned int& elements) {
  elements = answers.elements;
  return Note(__func__, channel, ticks);
}
bool zuCacheFileInterface::getArrayDataAtTime(unsigned int channel, int ticks, void*& data,
                                              unsigned int& elements) {
  const auto type = static_cast<zuCacheData::zuCacheDataType>(answers.type);
  std::memset(data, 0, elements * GetTypeLength(type) * GetTypeSize(type));
  return Note(__func__, channel, ticks, std::exchange(elements, kGarbage));
}
bool zuCacheFileInterface::beginWriteAtTime(int ticks) {
  return Note(__func__, ticks);
}
bool zuCacheFileInterface::addArrayData(unsigned int channel, int ticks, void*,
                                        unsigned int elements) {
  return Note(__func__, channel, ticks, elements);
}
bool zuCacheFileInterface::endWriteAtTime() {
  return Note(__func__);
}
bool zuCacheFileInterface::convertFromPc2(const char* pc2, const char* folder, const char* baseName,
                                          cacheFileFormat format, const char* tag, int ticks) {
  return Note(__func__, pc2, folder, baseName, int(format), tag, ticks);
}
bool zuCacheFileInterface::convertToPc2(const char* pc2, const char* folder, const char* baseName,
                                        unsigned int channel, int ticks) {
  return Note(__func__, pc2, folder, baseName, channel, ticks);
}

}  // namespace kelsdk

using kelsdk::test::answers;
using kelsdk::test::Note;

AlembicInterface::AlembicInterface(bool readOnly) : impl(nullptr) {
  Note(__func__, readOnly);
}
AlembicInterface::~AlembicInterface() {
  Note(__func__);
}
const char* AlembicInterface::GetErrorString() const {
  return "Alembic words";
}
bool AlembicInterface::Open(const char* fileName, int flags) {
  return Note(__func__, fileName, flags);
}
int AlembicInterface::GetNumChannels() const {
  return 0;
}
bool AlembicInterface::GetChannelIdFromName(const char*, unsigned int&) {
  return false;
}
bool AlembicInterface::GetChannelName(unsigned int, kelsdk::KelString&) {
  return false;
}
unsigned int AlembicInterface::GetChannelTypeSize(unsigned int) {
  return answers.typeSize;
}
unsigned int AlembicInterface::GetChannelDataLength(unsigned int) {
  return answers.dataLength;
}
unsigned int AlembicInterface::GetChannelBufferLength(unsigned int) {
  return answers.elements;
}
bool AlembicInterface::GetChannelTypeIsFloat(unsigned int) {
  return false;
}
bool AlembicInterface::GetChannelBuffer(unsigned int channel, float* buffer, unsigned int elements,
                                        const kelsdk::KelTime& time) {
  std::fill_n(buffer, elements * answers.dataLength, 1.0F);
  return Note(__func__, channel, elements, time.Get());
}
