#pragma once

#include "host/KelString.h"
#include "host/KelTime.h"

/// What a person may want to know of a channel beyond what the cache object asks.
struct AlembicChannelInfo {
  /// How the sample times are stored.
  enum ESampling { eUniform = 0, eCyclic = 1, eAcyclic = 2 };

  kelsdk::KelString name;            ///< full property path, such as "/body/bodyShape/.geom/P"
  kelsdk::KelString type;            ///< plain type and values per element, such as "float32[3]"
  kelsdk::KelString interpretation;  ///< the property's own word, such as "point"; "" when absent
  unsigned int sampleCount = 0;
  unsigned int elementCount = 0;  ///< elements of the largest sample
  double start = 0;               ///< seconds, first sample
  double end = 0;                 ///< seconds, last sample
  ESampling sampling = eUniform;
  double period = 0;      ///< seconds per sample (uniform) or per cycle (cyclic); 0 for acyclic
  bool constant = false;  ///< all samples are equal
};

/// Reads one Alembic archive as a list of channels: the numeric array and scalar properties that
/// have samples, of every object. docs/alembic-channels.md says which, in which order and how times
/// select samples. Every failure is a value; nothing throws. One object serves one call at a time.
class AlembicInterface {
 public:
  /// `readOnly` is always true: this class does not write.
  explicit AlembicInterface(bool readOnly);
  AlembicInterface(const AlembicInterface&) = delete;
  AlembicInterface& operator=(const AlembicInterface&) = delete;
  ~AlembicInterface();

  /// Opens an archive, parsing headers only. `flags` is 1 and has no meaning of its own.
  bool Open(const char* fileName, int flags);

  int GetNumChannels() const;

  /// Finds a channel by its full property path, or an object's positions by the object's path.
  bool GetChannelIdFromName(const char* channelName, unsigned int& channelId);
  bool GetChannelName(unsigned int channelIndex, kelsdk::KelString& channelName);
  /// 0 for a channel that the archive does not have, as in all size queries.
  unsigned int GetChannelNumSamples(unsigned int channelIndex);
  /// The times of the first and last sample; false, and zero times, for an unknown channel.
  bool GetChannelStartEnd(unsigned int channelIndex, kelsdk::KelTime& start, kelsdk::KelTime& end);
  unsigned int GetChannelTypeSize(unsigned int channelIndex);    ///< bytes of one element
  unsigned int GetChannelDataLength(unsigned int channelIndex);  ///< values per element
  /// Elements of the channel's largest sample, found when first asked for.
  unsigned int GetChannelBufferLength(unsigned int channelIndex);
  bool GetChannelTypeIsFloat(unsigned int channelIndex);  ///< true for 32-bit floats

  /// Delivers `count` elements (count x GetChannelDataLength floats) of the sample at `time`,
  /// converted to 32-bit floats. What a shorter sample does not fill is quiet NaN. False for an
  /// unknown channel (nothing written) and for a damaged sample.
  bool GetChannelBuffer(unsigned int channelIndex, float* buffer, unsigned int count,
                        const kelsdk::KelTime& time);

  // Care, beyond what the cache object uses.

  /// Why the last call that failed did so, in words, without the file's name; "" when none failed.
  /// Valid until the next call.
  const char* GetErrorString() const;

  /// False for an unknown channel or without memory.
  bool GetChannelInfo(unsigned int channelIndex, AlembicChannelInfo& info);

  /// The time of one sample in seconds; false for an unknown channel or sample.
  bool GetSampleTime(unsigned int channelIndex, unsigned int sampleIndex, double& seconds);

  /// Told one line, without a final line break.
  using ReportFunction = void (*)(void* context, const char* line);

  /// Reports the hierarchy of objects with their properties, one line each, indented.
  bool ListTree(ReportFunction report, void* context);

  /// Reads every sample of every property; true when all are sound, else each problem is reported.
  bool Verify(ReportFunction report, void* context);

 private:
  struct Impl;
  Impl* impl;
};
