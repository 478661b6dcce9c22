// Not served yet: no archive opens.
#include "backends/AlembicInterface.h"

AlembicInterface::AlembicInterface(bool /*readOnly*/) : impl(nullptr) {}
AlembicInterface::~AlembicInterface() = default;
bool AlembicInterface::Open(const char*, int) {
  return false;
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
unsigned int AlembicInterface::GetChannelNumSamples(unsigned int) {
  return 0;
}
bool AlembicInterface::GetChannelStartEnd(unsigned int, kelsdk::KelTime&, kelsdk::KelTime&) {
  return false;
}
unsigned int AlembicInterface::GetChannelTypeSize(unsigned int) {
  return 0;
}
unsigned int AlembicInterface::GetChannelDataLength(unsigned int) {
  return 0;
}
unsigned int AlembicInterface::GetChannelBufferLength(unsigned int) {
  return 0;
}
bool AlembicInterface::GetChannelTypeIsFloat(unsigned int) {
  return false;
}
bool AlembicInterface::GetChannelBuffer(unsigned int, float*, unsigned int,
                                        const kelsdk::KelTime&) {
  return false;
}
const char* AlembicInterface::GetErrorString() const {
  return "Alembic archives are not served yet";
}
bool AlembicInterface::GetChannelInfo(unsigned int, AlembicChannelInfo&) {
  return false;
}
bool AlembicInterface::ListTree(ReportFunction, void*) {
  return false;
}
bool AlembicInterface::Verify(ReportFunction, void*) {
  return false;
}
