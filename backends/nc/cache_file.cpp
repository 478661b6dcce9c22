// Not served yet: no cache opens.
#include "backends/zuCacheFileInterface.h"

namespace kelsdk {

zuCacheFileInterface::zuCacheFileInterface() : impl(nullptr) {}
zuCacheFileInterface::~zuCacheFileInterface() = default;
bool zuCacheFileInterface::initFileRead(const char*, const char*) {
  return false;
}
bool zuCacheFileInterface::initFileWrite(const char*, const char*, cacheFileFormat, const char*,
                                         int) {
  return false;
}
bool zuCacheFileInterface::addChannel(const char*, const char*, zuCacheData::zuCacheDataType,
                                      unsigned int&) {
  return false;
}
void zuCacheFileInterface::setOptimizeMultiChannelRead(bool) {}
bool zuCacheFileInterface::endFileWrite() {
  return false;
}
unsigned int zuCacheFileInterface::numChannels() const {
  return 0;
}
bool zuCacheFileInterface::hasChannelByName(const char*, unsigned int&) const {
  return false;
}
bool zuCacheFileInterface::channelName(unsigned int, char**) const {
  return false;
}
bool zuCacheFileInterface::channelInterpretation(unsigned int, char**) const {
  return false;
}
bool zuCacheFileInterface::channelDataType(unsigned int, zuCacheData::zuCacheDataType&) const {
  return false;
}
zuCacheFileInterface::cacheFileFormat zuCacheFileInterface::format() const {
  return eSingleFile;
}
int zuCacheFileInterface::getTicksPerFrame() const {
  return 0;
}
bool zuCacheFileInterface::getChannelStartTime(unsigned int, int&) const {
  return false;
}
bool zuCacheFileInterface::getChannelEndTime(unsigned int, int&) const {
  return false;
}
unsigned int zuCacheFileInterface::getDataCount(unsigned int) {
  return 0;
}
bool zuCacheFileInterface::getDataTime(unsigned int, unsigned int, int&) {
  return false;
}
bool zuCacheFileInterface::getNextTimeWithData(unsigned int, int, int&) {
  return false;
}
bool zuCacheFileInterface::getNextTimeWithData(int, int&) {
  return false;
}
bool zuCacheFileInterface::isChannelSamplingRegular(unsigned int) const {
  return false;
}
bool zuCacheFileInterface::channelSamplingRate(unsigned int, int&) const {
  return false;
}
bool zuCacheFileInterface::getArrayLengthAtTime(unsigned int, int, unsigned int&) {
  return false;
}
bool zuCacheFileInterface::getArrayDataAtTime(unsigned int, int, void*&, unsigned int&) {
  return false;
}
bool zuCacheFileInterface::beginWriteAtTime(int) {
  return false;
}
bool zuCacheFileInterface::addArrayData(unsigned int, int, void*, unsigned int) {
  return false;
}
bool zuCacheFileInterface::endWriteAtTime() {
  return false;
}
unsigned int zuCacheFileInterface::getDataFileCount() const {
  return 0;
}
bool zuCacheFileInterface::getDataFilePath(unsigned int, char**) {
  return false;
}
bool zuCacheFileInterface::convertFromPc2(const char*, const char*, const char*, cacheFileFormat,
                                          const char*, int) {
  return false;
}
bool zuCacheFileInterface::convertToPc2(const char*, const char*, const char*, unsigned int, int) {
  return false;
}
const char* zuCacheFileInterface::errorString() const {
  return "NC caches are not served yet";
}
bool zuCacheFileInterface::verify(const char*, const char*, reportFunction, void*) {
  return false;
}
bool zuCacheFileInterface::recover(const char*, const char*, unsigned int&, reportFunction, void*) {
  return false;
}

}  // namespace kelsdk
