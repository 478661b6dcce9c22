#pragma once

#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "backends/zuCacheFileInterface.h"

/// Stand-ins for the three back-ends: they note every call with its arguments and answer as told.
/// A test program links them in place of the real ones.
namespace kelsdk::test {

/// A channel that the NC stand-in presents.
struct StandInChannel {
  std::string name = "points";
  std::string interpretation = "Points";
  int type = zuCacheData::eNCFloatVectorArray;
  unsigned int arrayLength = 4;  ///< elements at any time
};

struct Recorder {
  std::vector<std::string> calls;
  std::set<std::string> refused;  ///< operations that answer false, such as "nc.addChannel"

  // NC answers.
  std::vector<StandInChannel> channels;
  int layout = 0;
  int ticksPerFrame = 250;
  int startTicks = 0;
  int endTicks = 6000;
  unsigned int dataCount = 3;
  bool regular = true;
  int interval = 250;
  unsigned int fileCount = 2;
  std::string filePath = "C:\\proj\\caches\\bodyFrame3.ncc";

  // PC2 answers.
  int version = 1;
  unsigned int pointCount = 4;
  float startFrame = 0;
  float sampleRate = 1;
  unsigned int sampleCount = 3;

  // Alembic answers.
  int alembicChannels = 2;
  unsigned int typeSize = 12;
  unsigned int dataLength = 3;
  unsigned int bufferLength = 4;
  bool isFloat = true;

  /// Fills the array of a read: the values counted up from here.
  double firstValue = 1;
  /// What the last write handed over, as doubles.
  std::vector<double> written;
  const void* lastPointer = nullptr;
  unsigned int lastCount = 0;

  /// The calls so far, one a line without line breaks: "a; b; c". Starts anew.
  std::string Take();
};

Recorder& TheRecorder();

/// Notes a call as "name(argument, argument)" and tells whether it is to succeed.
template <typename... Arguments>
bool Note(const std::string& name, const Arguments&... arguments) {
  std::ostringstream text;
  text << name << '(';
  [[maybe_unused]] const char* separator = "";
  ((text << separator << arguments, separator = ", "), ...);
  text << ')';
  TheRecorder().calls.push_back(text.str());
  return !TheRecorder().refused.contains(name);
}

}  // namespace kelsdk::test
