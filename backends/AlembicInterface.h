#pragma once

#include "host/KelApi.h"
#include "host/KelString.h"
#include "host/KelTime.h"

/// What a person may want to know of a channel beyond what the cache object asks.
struct AlembicChannelInfo {
  /// How the sample times are stored.
  enum ESampling { eUniform = 0, eCyclic = 1, eAcyclic = 2 };

  /// What ReadSample delivers: the stored values, but halves as floats, which hold them exactly.
  enum EValue {
    eBool = 0,  ///< one byte, 0 or not
    eUint8,
    eInt8,
    eUint16,
    eInt16,
    eUint32,
    eInt32,
    eUint64,
    eInt64,
    eFloat32,
    eFloat64,
  };

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
  EValue value = eFloat32;
};

/// Reads one Alembic archive as a list of channels: the numeric array and scalar properties that
/// have samples, of every object. docs/alembic-channels.md says which, in which order and how times
/// select samples. Every failure is a value; nothing throws. One object serves one call at a time.
class KEL_API AlembicInterface {
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

  // Maintenance, beyond what the cache object uses.

  /// The containers that this build reads, for a person: "Ogawa, HDF5 (libhdf5 1.10.8)", or
  /// "Ogawa".
  static const char* Containers();

  /// Why the last call that failed did so, in words, without the file's name; "" when none failed.
  /// Valid until the next call.
  const char* GetErrorString() const;

  /// False for an unknown channel or without memory.
  bool GetChannelInfo(unsigned int channelIndex, AlembicChannelInfo& info);

  /// The time of one sample in seconds; false for an unknown channel or sample.
  bool GetSampleTime(unsigned int channelIndex, unsigned int sampleIndex, double& seconds);

  /// The sample that GetChannelBuffer delivers at `time`; false for an unknown channel.
  bool GetSampleAtTime(unsigned int channelIndex, const kelsdk::KelTime& time,
                       unsigned int& sampleIndex);

  /// The elements of one sample, which may be fewer than GetChannelBufferLength, and 0. False for
  /// an unknown channel or sample and for a damaged one.
  bool GetSampleLength(unsigned int channelIndex, unsigned int sampleIndex,
                       unsigned int& elementCount);

  /// Delivers one sample as it is stored (AlembicChannelInfo::EValue), GetChannelDataLength values
  /// an element. What the sample does not fill of the room is unspecified.
  /// @param values        the caller's; room for `elementCount` elements
  /// @param elementCount  in: the room; out: the elements delivered
  /// False for an unknown channel or sample, for a damaged one and when the room is smaller than
  /// the sample; `values` is then unspecified.
  bool ReadSample(unsigned int channelIndex, unsigned int sampleIndex, void* values,
                  unsigned int& elementCount);

  /// The samples around one that the archive keeps only once, `first` to `last`, and a number that
  /// all samples of the archive share which are kept as the same bytes, whatever their type; 0 for
  /// samples of no bytes.
  bool GetSampleRun(unsigned int channelIndex, unsigned int sampleIndex, unsigned int& first,
                    unsigned int& last, unsigned long long& identity);

  /// How many objects, properties or times are damaged and left out; Verify tells which.
  unsigned long long GetProblemCount() const;

  /// Told one line, without a final line break.
  using ReportFunction = void (*)(void* context, const char* line);

  /// Reports the hierarchy of objects with their properties, one line each, indented.
  bool ListTree(ReportFunction report, void* context);

  /// Told how much of a long call is done, in parts of its own size; false ends it.
  using ProceedFunction = bool (*)(void* context, unsigned long long done,
                                   unsigned long long total);

  /// Reads every sample of every property; true when all are sound, else each problem is reported.
  /// @param proceed  may be null; a call that it ended is reported and not sound
  bool Verify(ReportFunction report, void* context, ProceedFunction proceed = nullptr);

 private:
  struct KEL_PRIVATE Impl;
  Impl* impl;
};
