#include "backends/zuPointCache2IO.h"
#include "tests/standins/recorder.h"

namespace kelsdk {

using test::Note;
using test::TheRecorder;

zuPointCache2IO::zuPointCache2IO() : impl(nullptr) {
  Note("pc2.new");
}
zuPointCache2IO::~zuPointCache2IO() {
  Note("pc2.delete");
}

bool zuPointCache2IO::initialize(const char* fileName, openMode mode) {
  if (!Note("pc2.initialize", fileName, int(mode))) return false;
  if (mode == readMode) {
    version = TheRecorder().version;
    pointCount = TheRecorder().pointCount;
    startFrame = TheRecorder().startFrame;
    sampleRate = TheRecorder().sampleRate;
    sampleCount = TheRecorder().sampleCount;
  }
  return true;
}

bool zuPointCache2IO::beginWriteData(int points, int samples, float start, float rate) {
  pointCount = static_cast<unsigned int>(points);
  return Note("pc2.beginWriteData", points, samples, start, rate);
}

bool zuPointCache2IO::readSample(unsigned int sampleIndex, float* buffer, unsigned int& points) {
  TheRecorder().lastPointer = buffer;
  if (!Note("pc2.readSample", sampleIndex, points)) return false;
  double value = TheRecorder().firstValue;
  for (unsigned int i = 0; i < points * 3 && i < pointCount * 3; ++i) {
    buffer[i] = static_cast<float>(value++);
  }
  points = 0xBAD;  // the count is not read back
  return true;
}

bool zuPointCache2IO::writeSample(int sampleIndex, float* buffer) {
  TheRecorder().written.assign(buffer, buffer + pointCount * 3);
  return Note("pc2.writeSample", sampleIndex);
}

bool zuPointCache2IO::endWriteData() {
  return Note("pc2.endWriteData");
}

}  // namespace kelsdk
