#pragma once

#include "backends/zuCacheFileInterface.h"
#include "host/KelApi.h"
#include "host/KelClassId.h"
#include "host/KelManager.h"
#include "host/KelMemory.h"
#include "host/KelObject.h"
#include "host/KelProperty.h"
#include "host/KelStatus.h"
#include "host/KelString.h"
#include "host/KelTime.h"

namespace kelsdk {

struct KelCache_internal;

/// One animation cache on disk: a PC2 point cache, an NC multi-channel cache or an Alembic archive
/// (read only).
///
/// A host makes the object through a manager, names the file and the format, opens it and then asks
/// about channels and timing, reads and writes by time or sample number, or fetches any moment's
/// data as floats.
///
/// Common to all operations:
/// - Failures are values (false, 0, -1, 0.0, a null buffer); nothing throws.
/// - `status` may be null. A failure sets code 1 (eFailure) with a message, or a bare code 1,
///   3 (eInvalidParameter) or 4 (eIndexOutOfRange); a success leaves the status clear. Where an
///   operation fails and the status stays clear, its description says so.
/// - Frequent messages: "Invalid/unspecified cache format" when the format set at that moment is
///   not one that the operation serves; "Cache file not opened" when no file of that format is
///   open; "Invalid open flag" when it is open for the other direction.
/// - Without memory an operation fails with code 1 and no message, unless it says otherwise.
/// - Times are KelTime. NC caches count whole ticks, 6000 to the second, of 7,697,693 KelTime
/// units;
///   a time is cut toward zero to ticks. A time outside the signed 32-bit tick range (about
///   +-99.4 hours) is refused with code 3.
/// - The object takes no locks and has no threads: one call at a time. Separate objects share
///   nothing and may be used on separate threads at the same time.
class KEL_API KelCache : public KelObject {
 public:
  enum EFileFormat : int {
    eUnknownFormat = 0,
    ePC2Format = 1,      ///< ".pc2"
    eNCFormat = 2,       ///< ".xml" with its data files
    eAlembicFormat = 3,  ///< ".abc", read only
  };
  enum EOpenFlag : int { eOpenForRead = 0, eOpenForWrite = 1 };
  /// The data files of an NC cache: one for all times, or one per frame.
  enum ENCFileCount : int { eNCSingleFile = 0, eNCFilePerFrame = 1 };
  /// The data-file tag of an NC cache: compact "ncc", or raw "ncx".
  enum ENCBinaryFormat : int { eNCBinaryC = 0, eNCBinaryX = 1 };
  enum ENCSamplingType : int { eNCSamplingRegular = 0, eNCSamplingIrregular = 1 };
  /// The element type of an NC channel; equal to the library's zuCacheDataType. An element of a
  /// vector type is three values. Only types 2 to 6 are read or written.
  enum ENCDataType : int {
    eNCUnknownData = 0,
    eNCDouble = 1,
    eNCDoubleArray = 2,
    eNCDoubleVectorArray = 3,
    eNCInt32Array = 4,
    eNCFloatArray = 5,
    eNCFloatVectorArray = 6,
  };

  static KelClassId ClassId;

  // Making an object. The manager owns it; KelObject::Destroy() or the manager's end ends it. An
  // open file is then dropped, not closed: a write is not completed.

  /// @return null when there is no memory
  static KelCache* Create(KelManager* manager, const char* name);
  /// Makes the object with the container's manager; null when the container is null or has none.
  static KelCache* Create(KelObject* container, const char* name);
  /// The class's factory; callers use Create.
  static KelCache* Allocate(KelManager* manager, const char* name, const KelCache* from);

  KelCache(KelManager& manager, const char* name);
  ~KelCache() override;
  KelClassId GetClassId() const override;
  void Construct(const KelObject* from) override;
  void ConstructProperties(bool forceSet) override;
  void Destruct(bool recursive) override;

  // Name and format of the file. Both may be set at any time; an open file is not affected, but
  // every operation works on the file of the format set at that moment.

  bool SetCacheFileFormat(EFileFormat fileFormat, KelStatus* status);
  EFileFormat GetCacheFileFormat() const;

  /// Stores both names as they are. The absolute name is where the file is looked for and written;
  /// the relative one is the fallback for reading, resolved against the current directory. Code 1
  /// without memory alone: a name that the object's PropertyNotify refuses stays as it was, and no
  /// status tells.
  void SetCacheFileName(const char* relativeFileName, const char* absoluteFileName,
                        KelStatus* status);
  void GetCacheFileName(KelString& relativeFileName, KelString& absoluteFileName) const;

  // Opening and closing. Each format has its own file, but all share one open flag, that of the
  // file opened last: with a file of one format open for writing and another of a second format
  // then opened for reading, closing the first one takes it for one that was read and leaves what
  // was written unpublished. Close a file before switching to another format and opening there.

  /// Opens the file; the three forms below are argument patterns of it. When a file of the current
  /// format is open already, nothing changes and the result is whether it has the same flag (no
  /// code is set).
  ///
  /// Reading looks for folder + "/" + base name + the format's extension of the absolute name, then
  /// of the resolved relative name.
  /// @param samplingFrameRate  frames per second; NC writing: 6000 / rate, cut, is the ticks per
  ///                           frame
  /// @param channelName, interpretation, dataType  NC writing: the first channel; null gives the
  ///                           base name and "Points"
  /// @param sampleCount, frameStartOffset  PC2 writing: samples in the file, frame of the first
  /// @param pointCount         PC2: points (not values) per sample
  /// Errors (code 1): "Invalid/unspecified cache format" (format 0), "Invalid sampling rate" (below
  ///   2^-52, not a number, or its ticks do not fit 32 bits), "Cache file not found: %s, %s",
  ///   "Cache file could not be created: %s%s", "Unsupported file version" (PC2),
  ///   "Alembic Cache file write is not supported". Code 3 when pointCount x 12 bytes does not fit
  ///   32 bits in reading. A file that its back-end refuses to read, and an unknown format, give
  ///   false with the status clear.
  bool OpenFile(EOpenFlag flag, ENCFileCount fileCount, double samplingFrameRate,
                const char* channelName, const char* interpretation, unsigned int sampleCount,
                unsigned int pointCount, double frameStartOffset, KelStatus* status,
                ENCDataType dataType, ENCBinaryFormat binaryFormat);
  bool OpenFileForRead(KelStatus* status);
  /// Opens the very file of the absolute name for reading, whatever its extension, as a file of the
  /// format set; an NC cache, whose files share a base name, as OpenFileForRead does.
  /// Errors: those of OpenFile, with "Cache file not found: %s" for a name that is no file's.
  bool OpenNamedFileForRead(KelStatus* status);
  /// PC2. The file carries the start frame and a sample rate of 1 frame.
  bool OpenFileForWrite(double frameStartOffset, double samplingFrameRate, unsigned int sampleCount,
                        unsigned int pointCount, KelStatus* status);
  /// NC.
  bool OpenFileForWrite(ENCFileCount fileCount, double samplingFrameRate, const char* channelName,
                        ENCBinaryFormat binaryFormat, ENCDataType dataType,
                        const char* interpretation, KelStatus* status);
  /// False, with "Invalid/unspecified cache format", also when the format is good but not open.
  bool IsOpen(KelStatus* status) const;
  /// Completes a write and closes. Always true: whether a written file could be completed is to be
  /// seen in the file.
  bool CloseFile(KelStatus* status);
  /// Why the open file's back-end refused what it refused last, or why the last one could not be
  /// opened or completed, in words and without the file's name: "sample 12 is not in the file: it
  /// holds 12 whole samples of 40 claimed". "" when there is nothing to say. Valid until the next
  /// call of the object.
  const char* GetErrorString() const;

  // Data files of an open NC cache. Names use "/" only.

  /// The number of data files, the description not counted; 0, without a code, when no NC cache is
  /// open.
  int GetCacheDataFileCount(KelStatus* status) const;
  /// One data file's name, absolute and relative in the way of the cache's own relative name. Both
  /// are untouched on failure.
  /// Errors (code 1): "Invalid/unspecified cache format", "The cache file can not be opened",
  ///   "The file index is invalid", "Failed to get the cache file's name".
  bool GetCacheDataFileName(int fileIndex, KelString& relativeFileName, KelString& absoluteFileName,
                            KelStatus* status);

  // Channels. A PC2 cache is one channel, 0, without a name.

  /// NC. Code 3 for a null name or interpretation and when no NC cache is open; false with the
  /// status clear when the library refuses (a name that is taken, a cache open for reading). Looks
  /// at the open NC cache alone, whatever format is set.
  bool AddChannel(const char* channelName, ENCDataType dataType, const char* interpretation,
                  unsigned int& channelIndex, KelStatus* status);
  /// All formats; -1 on failure, with the status clear when no known format is set.
  int GetChannelCount(KelStatus* status);
  /// All formats; -1 on failure and, with the status clear, for an unknown name. A null or empty
  /// name, and any name of a PC2 cache, is channel 0. Not open: "Cache file not open!". Without a
  /// format (0) the status is not touched.
  int GetChannelIndex(const char* channelName, KelStatus* status);
  /// All formats. Code 3 for a negative index; false with the status clear for one that does not
  /// exist, and when no known format is set.
  bool GetChannelName(int channelIndex, KelString& channelName, KelStatus* status);
  /// NC. Code 3 for a negative index; false with the status clear for one that does not exist, and
  /// when no known format is set.
  bool GetChannelDataType(int channelIndex, ENCDataType& dataType, KelStatus* status);
  /// NC. Code 4 for an index that does not exist.
  bool GetChannelInterpretation(int channelIndex, KelString& interpretation, KelStatus* status);
  /// NC.
  bool GetCacheType(ENCFileCount& fileCount, KelStatus* status);
  /// NC. Reading whole time blocks at once; on after every open for reading.
  bool EnableMultiChannelFetching(bool enable, KelStatus* status);

  // Time and sampling.

  /// NC and Alembic: the times of the channel's first and last sample. Code 3 for a negative index;
  /// true, with what the back-end answers, for one that does not exist.
  bool GetAnimationRange(int channelIndex, KelTime& startTime, KelTime& endTime, KelStatus* status);
  /// Frames per second: NC from its ticks per frame, PC2 open for reading the header's sample rate
  /// (which counts frames per sample), Alembic 0.0 without a failure, open or not.
  double GetSamplingFrameRate(KelStatus* status);
  /// One second divided by the whole part of GetSamplingFrameRate; zero without a rate. Never
  /// reports a failure.
  KelTime GetCacheTimePerFrame(KelStatus* status);
  /// NC: the time of a sample; code 1 without a message when there is none of that number.
  bool GetDataTime(int channelIndex, unsigned int dataIndex, KelTime& time, KelStatus* status);
  /// NC: the number of samples; 0, with code 1 and no message, when there are none.
  unsigned int GetDataCount(int channelIndex, KelStatus* status);
  /// NC: the first time with data strictly after `currentTime`, in any channel for -1; code 1
  /// without a message when there is none.
  bool GetNextTimeWithData(KelTime currentTime, KelTime& nextTime, int channelIndex,
                           KelStatus* status);
  /// NC: the elements (a vector counts as one) that the channel holds at `time`. Code 4 for an
  /// index that does not exist; "Specified time is out of range" outside first to last sample;
  /// "Error retrieving channel point count".
  bool GetChannelPointCount(int channelIndex, KelTime time, unsigned int& pointCount,
                            KelStatus* status);
  /// NC and Alembic. Code 4 for an index that does not exist; no samples is a success.
  bool GetChannelSampleCount(int channelIndex, unsigned int& sampleCount, KelStatus* status);
  /// NC. Code 4 for an index that does not exist.
  bool GetChannelSamplingType(int channelIndex, ENCSamplingType& samplingType, KelStatus* status);
  /// NC: the time from one sample to the next (not a frequency). Code 4 for an index that does not
  /// exist; "Sampling type for this channel is irregular"; "Error retrieving channel sampling
  /// rate".
  bool GetChannelSamplingRate(int channelIndex, KelTime& samplingRate, KelStatus* status);

  // Writing NC channels, time by time. A cache of one channel may leave BeginWriteAt and EndWriteAt
  // out.

  bool BeginWriteAt(KelTime& time, KelStatus* status);
  /// Writes a channel's array at a time.
  /// @param buffer  the caller's; `count` elements (3 x count values for vector types). Doubles and
  ///                floats are converted to the channel's type (to the nearest float), integers
  ///                are taken by eNCInt32Array only
  /// Errors: code 3 for a null buffer, checked first, and for a converted size that does not fit 32
  ///   bits; the three frequent messages; "BeginWriteAt not called" with several channels and no
  ///   open block; code 1 without a message for a buffer type that the channel does not take.
  ///   False with the status clear: unknown channel, no memory for the conversion, refused by the
  ///   library.
  bool Write(int channelIndex, KelTime& time, double* buffer, unsigned int count,
             KelStatus* status);
  bool Write(int channelIndex, KelTime& time, float* buffer, unsigned int count, KelStatus* status);
  bool Write(int channelIndex, KelTime& time, int* buffer, unsigned int count, KelStatus* status);
  bool EndWriteAt(KelStatus* status);

  // Reading channels into the caller's array.

  /// Reads the array that a channel holds at a time.
  /// @param buffer  out, the caller's: room for `count` elements (3 x count values for vector
  ///                types). Doubles and floats are converted, integers are read from eNCInt32Array
  ///                only. A shorter NC array leaves zeros in the rest, a longer one fails
  /// Errors: the first two frequent messages; code 1 without a message for a buffer type that the
  ///   channel does not give; code 3 for a null buffer with a count and for a converted size that
  ///   does not fit 32 bits. False with the status clear: unknown channel, no memory for the
  ///   conversion, refused by the back-end.
  bool Read(int channelIndex, KelTime& time, float* buffer, unsigned int count,
            KelStatus* status);  ///< NC and Alembic
  bool Read(int channelIndex, KelTime& time, double* buffer, unsigned int count, KelStatus* status);
  bool Read(int channelIndex, KelTime& time, int* buffer, unsigned int count, KelStatus* status);

  // PC2 samples by number, as doubles. All checks set code 1 and one of the frequent messages.

  /// Reads one sample.
  /// @param sampleIndex  counted from the first sample in the file
  /// @param buffer       out, the caller's: room for pointCount x 3 doubles, x0 y0 z0 x1 ...;
  ///                     untouched when the call fails
  /// @param pointCount   points, not values; what the file does not have is zero
  /// Errors: "Error reading sample data"; code 3 for a null buffer with points, and when
  ///   pointCount x 12 bytes does not fit 32 bits.
  /// Cost: one read of 12 bytes a point; allocates only when pointCount outgrows earlier calls.
  bool Read(unsigned int sampleIndex, double* buffer, unsigned int pointCount, KelStatus* status);
  /// Writes one sample of the point count given to OpenFileForWrite, in any order, each double to
  /// the nearest float. Code 3 for a null buffer, checked first; "Error writing sample data".
  bool Write(unsigned int sampleIndex, double* buffer, KelStatus* status);
  /// The values (not points) of one sample: 3 x the point count. 0 on failure.
  unsigned int GetPointCount(KelStatus* status);
  unsigned int GetSampleCount(KelStatus* status);
  /// The frame of the first sample.
  double GetFrameStartOffset(KelStatus* status);

  // Any format: a moment's data as floats.

  /// Fetches the data of one moment.
  /// @param buffer        may be null: then only the length is reported. Otherwise receives a
  ///                      pointer to `length` floats that the object owns: valid until the next
  ///                      call of this operation or the end of the object; null on failure
  /// @param length        out: float values (not elements, not bytes); 0 on failure
  /// @param time          PC2: the time of frame F fetches sample F, at the rate of
  ///                      KelTime::eDefaultMode, whatever frame the file starts at
  /// @param channelIndex  NC and Alembic
  /// Doubles and 32-bit integers arrive as the nearest float.
  /// Cost: an unchanged or smaller layout allocates nothing; float data are handed out from the
  ///   buffer that the back-end filled.
  bool Read(float** buffer, unsigned int& length, const KelTime& time, unsigned int channelIndex);

  // Conversion between PC2 and NC, of the file that the names and the format give; whether it is
  // open plays no part. The target appears beside the source, whole or not at all.

  /// Errors (code 1): "Invalid sampling rate", "Cache file not found: %s",
  ///   "Conversion from PC2 to NC failed". On another format than PC2 false with the status
  ///   untouched.
  bool ConvertFromPC2ToNC(ENCFileCount fileCount, double samplingFrameRate,
                          ENCBinaryFormat binaryFormat, KelStatus* status);
  /// Errors (code 1): "Invalid sampling rate", "Cache file not found: %s",
  ///   "Conversion from NC to PC2 failed". On another format than NC false with the status
  ///   untouched.
  bool ConvertFromNCToPC2(double samplingFrameRate, unsigned int channelIndex, KelStatus* status);

 protected:
  bool AllocateReadBuffer(unsigned int typeSize, unsigned int typeLength, unsigned int elementCount,
                          bool needsFloatBuffer);
  bool ReadTovCache(float** buffer, unsigned int& length, const KelTime& time);
  bool ReadNuvoCache(float** buffer, unsigned int& length, const KelTime& time,
                     unsigned int channelIndex);
  bool ReadAlembicCache(float** buffer, unsigned int& length, const KelTime& time,
                        unsigned int channelIndex);

  KelCache_internal* internalState = nullptr;

  KelProperty CacheFileName;          ///< KelString
  KelProperty CacheAbsoluteFileName;  ///< KelString
  KelProperty CacheFileType;          ///< an EFileFormat

  // The read buffers of the fetch; a layout is (readTypeSize, readTypeLength, readElementCount).
  void* readBuffer = nullptr;           ///< owned; what the back-end fills
  unsigned int readValueCount = 0;      ///< readTypeLength x readElementCount
  unsigned int readBufferCapacity = 0;  ///< bytes at readBuffer; never decreases
  unsigned int readTypeSize = 0;        ///< bytes of one value as the back-end delivers it
  unsigned int readTypeLength = 0;      ///< values per element
  unsigned int readElementCount = 0;
  float* readFloatBuffer = nullptr;  ///< owned; readValueCount floats made from other types

 private:
  bool OpenNCForRead(const char* baseName, const char* folder, KelStatus* status);
  bool OpenPC2(EOpenFlag flag, const char* absoluteName, const char* folder, const char* baseName,
               unsigned int sampleCount, unsigned int pointCount, double frameStartOffset,
               KelStatus* status);
  bool OpenAlembic(const char* absoluteName, KelStatus* status);
};

/// The element types of NC channels: bytes of one value, values per element, whether values are
/// 32-bit floats. 0, 0 and false for types that are not read or written.
KEL_API unsigned int GetTypeSize(zuCacheData::zuCacheDataType type);
KEL_API unsigned int GetTypeLength(zuCacheData::zuCacheDataType type);
KEL_API bool GetTypeIsFloat(zuCacheData::zuCacheDataType type);

}  // namespace kelsdk
