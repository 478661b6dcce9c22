#pragma once

#include "backends/CacheLeftover.h"
#include "backends/CacheProgress.h"
#include "host/KelApi.h"
#include "host/KelTime.h"

namespace kelsdk {

struct zuCacheData {
  /// The element type of a channel. An element of a vector type is three consecutive values.
  enum zuCacheDataType : int {
    eNCUnknownData = 0,
    eNCDouble = 1,  ///< may be declared, is never read or written
    eNCDoubleArray = 2,
    eNCDoubleVectorArray = 3,
    eNCInt32Array = 4,
    eNCFloatArray = 5,
    eNCFloatVectorArray = 6,
  };
};

/// The channel-cache library: reads and writes one NC cache, an XML description (BASE.xml) with its
/// data files, and converts between PC2 files and NC caches.
///
/// Times are signed 32-bit ticks, 6000 to the second. Counts of channel data are elements, never
/// values or bytes. Strings handed out through a `char**` come from KelMalloc and become the
/// caller's. Every failure is a value; nothing throws. One object serves one call at a time.
/// docs/nc-format.md gives the files byte by byte.
class KEL_API zuCacheFileInterface {
 public:
  /// The clock of NC caches.
  static constexpr int kTicksPerSecond = 6000;

  enum cacheFileFormat : int {
    eSingleFile = 0,    ///< one data file for all times
    eFilePerFrame = 1,  ///< one data file per frame
  };

  zuCacheFileInterface();
  zuCacheFileInterface(const zuCacheFileInterface&) = delete;
  zuCacheFileInterface& operator=(const zuCacheFileInterface&) = delete;

  /// Ends the object. A write that endFileWrite has not ended is not published: what it has written
  /// stays beside the cache, where recover finds it.
  virtual ~zuCacheFileInterface();

  // Set-up.

  /// Opens FOLDER + BASE.xml and its data for reading. `folder` ends in "/".
  bool initFileRead(const char* baseName, const char* folder);

  /// Begins to write the cache FOLDER + BASE. Until endFileWrite an older cache of that name stays
  /// as it is. `dataFileTag` is "ncx" (raw) or "ncc" (compact). Refused when a name that a data
  /// file may come to bear is taken by a file of another cache or by what is no NC data file; data
  /// files that no description claims are replaced.
  bool initFileWrite(const char* folder, const char* baseName, cacheFileFormat format,
                     const char* dataFileTag, int ticksPerFrame);

  /// Adds a channel to a cache open for writing, at any time before endFileWrite. Refused for an
  /// empty or known name and when open for reading.
  bool addChannel(const char* channelName, const char* interpretation,
                  zuCacheData::zuCacheDataType dataType, unsigned int& channelIndex);

  /// Reads whole time blocks at once and serves the other channels of that time from memory.
  void setOptimizeMultiChannelRead(bool enable);

  /// Completes the cache, makes it durable and puts it in the place of an older one.
  bool endFileWrite();

  // Catalogue.

  unsigned int numChannels() const;
  bool hasChannelByName(const char* channelName, unsigned int& channelIndex) const;
  bool channelName(unsigned int channelIndex, char** name) const;
  bool channelInterpretation(unsigned int channelIndex, char** interpretation) const;
  bool channelDataType(unsigned int channelIndex, zuCacheData::zuCacheDataType& dataType) const;
  cacheFileFormat format() const;

  // Time and sampling.

  int getTicksPerFrame() const;
  /// The times of the channel's first and last sample; without a sample false and 0 ticks.
  bool getChannelStartTime(unsigned int channelIndex, int& ticks) const;
  bool getChannelEndTime(unsigned int channelIndex, int& ticks) const;
  unsigned int getDataCount(unsigned int channelIndex);
  bool getDataTime(unsigned int channelIndex, unsigned int dataIndex, int& ticks);
  /// The first time with data strictly after `ticks`, of one channel or of any.
  bool getNextTimeWithData(unsigned int channelIndex, int ticks, int& nextTicks);
  bool getNextTimeWithData(int ticks, int& nextTicks);
  bool isChannelSamplingRegular(unsigned int channelIndex) const;
  /// The interval between two samples of a regular channel.
  bool channelSamplingRate(unsigned int channelIndex, int& ticks) const;
  bool getArrayLengthAtTime(unsigned int channelIndex, int ticks, unsigned int& elementCount);

  // Data.

  /// Delivers the array that the channel holds at a time.
  /// @param data          the caller's array, in the channel's own element type; never reallocated
  /// @param elementCount  in: its room in elements; out: the elements delivered
  /// Room smaller than the array: false, nothing written. Room larger: the rest is zero. The data's
  /// checksum is verified on every read.
  bool getArrayDataAtTime(unsigned int channelIndex, int ticks, void*& data,
                          unsigned int& elementCount);

  bool beginWriteAtTime(int ticks);
  /// Writes the array of a channel in the open time block; `data` stays the caller's.
  bool addArrayData(unsigned int channelIndex, int ticks, void* data, unsigned int elementCount);
  bool endWriteAtTime();

  // Files. File 0 is the description, the data files follow.

  unsigned int getDataFileCount() const;
  bool getDataFilePath(unsigned int fileIndex, char** path);

  // Conversion.

  static bool convertFromPc2(const char* pc2FileName, const char* folder, const char* baseName,
                             cacheFileFormat format, const char* dataFileTag, int ticksPerFrame);
  static bool convertToPc2(const char* pc2FileName, const char* folder, const char* baseName,
                           unsigned int channelIndex, int ticksPerFrame);

  // Maintenance, beyond what the cache object uses.

  /// Gives a write up: removes what it has made. Without effect once endFileWrite has begun to
  /// publish.
  void discardWrite();

  /// The form of the arrays behind the tag "ncc": the first, where each stands by itself and which
  /// the earliest readers know, and the usual one, where they are predicted from earlier ones.
  static constexpr unsigned int kFirstCompactEncoding = 1;
  static constexpr unsigned int kCompactEncoding = 2;

  /// As above, noting the exact frame rate where 6000 / rate is no whole number of ticks, such as
  /// 24000/1001, whose ticks per frame are 250 (not valid: none). Refused when the two do not
  /// agree.
  bool initFileWrite(const char* folder, const char* baseName, cacheFileFormat format,
                     const char* dataFileTag, int ticksPerFrame, const KelFrameRate& exactRate,
                     unsigned int compactEncoding = kCompactEncoding);
  /// The form of the open cache's arrays, 0 when they are stored as they are.
  unsigned int compactEncoding() const;

  /// What the arrays of a cache that is open for reading take, in bytes: by themselves, and on
  /// disk. An array that several samples share counts once. Only of a cache in one file: false for
  /// any other, and when its indices cannot be read.
  bool arraySizes(unsigned long long& arrayBytes, unsigned long long& storedBytes) const;

  /// Lets the values of a channel move by at most so much, in their own unit, where that takes less
  /// room: what is read differs from what was written by no more, in double precision. NaN and
  /// infinities stay, as does any array of which a value cannot be kept within the bound. Refused
  /// for integers, for a cache that is not in compact encoding 2, and once an array has been
  /// written since the channel was added.
  bool setMaximumError(unsigned int channelIndex, double maximumError);
  /// What setMaximumError was told when the cache was written, 0 when it was not; false for an
  /// unknown channel.
  bool maximumError(unsigned int channelIndex, double& maximumError) const;
  /// The exact frame rate, where one is noted.
  bool exactFrameRate(KelFrameRate& rate) const;

  /// As above, declaring the channel's sampling interval in ticks, 0 for the ticks per frame: what
  /// counts while a channel has fewer than two samples.
  bool addChannel(const char* channelName, const char* interpretation,
                  zuCacheData::zuCacheDataType dataType, unsigned int intervalTicks,
                  unsigned int& channelIndex);
  /// The declared interval, 0 for none; false for an unknown channel.
  bool declaredInterval(unsigned int channelIndex, unsigned int& intervalTicks) const;

  /// Where the samples of a channel lie when they are evenly spaced to within a tick, which is how
  /// a PC2 file has them, at a frame rate (not valid: at the ticks per frame that are given).
  /// @param startFrame      frame of the first sample
  /// @param framesPerSample frames from one sample to the next
  /// @return false when they are not, or when there are none
  bool evenSpacing(unsigned int channelIndex, int ticksPerFrame, const KelFrameRate& exactRate,
                   double& startFrame, double& framesPerSample);

  /// Writes to a channel, in the open time block, the very array that another channel of the same
  /// type (or the same channel) holds at exactly `ofTicks`, without storing it again.
  /// @return false, with nothing changed, where that can not be: an unknown sample, another type,
  /// or
  ///         an array in another data file
  bool repeatArrayData(unsigned int channelIndex, int ticks, unsigned int ofChannel, int ofTicks);

  /// What a conversion takes and how it counts frames.
  struct conversionOptions {
    KelFrameRate exactRate = {0, 0};  ///< noted with an NC cache; frames are frames of it
    unsigned int firstSample = 0;     ///< of the PC2 file
    unsigned int sampleCount = ~0u;   ///< or as many as there are
    unsigned int compactEncoding = kCompactEncoding;  ///< of a compact NC cache
    double maximumError = 0;  ///< of its points, as setMaximumError takes it; 0: none moves
  };

  /// Follows a conversion, which may run for minutes.
  struct conversionWatch {
    /// Told after each sample; false ends the conversion. May be null.
    bool (*proceed)(void* context, unsigned int done, unsigned int total) = nullptr;
    /// Told why a conversion failed, in words. May be null.
    void (*report)(void* context, const char* line) = nullptr;
    void* context = nullptr;
  };

  /// The conversions above, of a part and watched. A target that was not completed leaves nothing
  /// behind.
  static bool convertFromPc2(const char* pc2FileName, const char* folder, const char* baseName,
                             cacheFileFormat format, const char* dataFileTag, int ticksPerFrame,
                             const conversionOptions& options, const conversionWatch& watch);
  static bool convertToPc2(const char* pc2FileName, const char* folder, const char* baseName,
                           unsigned int channelIndex, int ticksPerFrame,
                           const conversionOptions& options, const conversionWatch& watch);

  /// Why the last call that failed did so, in words, without the file's name; "" when none failed.
  /// Valid until the next call.
  const char* errorString() const;

  /// Told one line about each problem, without a final line break.
  using reportFunction = void (*)(void* context, const char* line);

  /// Told how much of a long call is done, in parts of its own size; false ends it.
  using proceedFunction = bool (*)(void* context, unsigned long long done,
                                   unsigned long long total);

  /// Reads everything of a cache: description, indices, sizes, every array and its checksum.
  /// @return true when all is sound; otherwise every problem has been reported
  /// @param proceed  may be null; a call that it ended is reported and not sound
  static bool verify(const char* folder, const char* baseName, reportFunction report, void* context,
                     proceedFunction proceed = nullptr);

  struct recoverOptions {
    /// Put what is recovered in the place of a whole cache too, which is then kept beside it.
    bool force = false;
  };

  /// Completes and publishes what a dead writer of the cache left behind: the newest attempt, the
  /// others are named; what was interrupted while it was put in place goes on first. It takes the
  /// name where no whole cache stands; a damaged one that does is kept as "BASE.before-recover". A
  /// whole cache stays as it is, and what was recovered goes beside it as "BASE.recovered", or with
  /// `force` in its place while the older one is kept as "BASE.before-recover". Taken names are
  /// numbered ("BASE.recovered2"). Never put in the place of a cache begun later, with `force`
  /// neither.
  /// @param blockCount  out: the whole time blocks that the recovered cache holds
  /// @return false when there was nothing to recover or it could not be published; `report`, which
  ///         may be null, is told what was found and refused, and under which names caches were
  ///         saved and kept
  static bool recover(const char* folder, const char* baseName, const recoverOptions& options,
                      unsigned int& blockCount, reportFunction report, void* context);
  /// The same without `force`.
  static bool recover(const char* folder, const char* baseName, unsigned int& blockCount,
                      reportFunction report, void* context);

  /// What dead writers of a cache, which need not exist, left for recover. Lists the folder;
  /// touches no living writer.
  /// @param report  told one line about each; may be null
  static unsigned int leftovers(const char* folder, const char* baseName, reportFunction report,
                                void* context);

  /// Follows a writer of a cache that is at work, the one that began last: what it gathers is
  /// looked at, `told` of it, and so on until it is published, given up or its writer has died.
  /// Each look goes on where the one before it ended. Disturbs no writer.
  /// @param report  told when there are several, and why the folder cannot be read; may be null. It
  ///                has the same context
  /// @return false when none is at work, and nothing was told
  static bool follow(const char* folder, const char* baseName, CacheProgressFunction told,
                     reportFunction report, void* context);

  /// Lists what dead writers and recoveries of NC caches left in a folder: partial folders, those
  /// of living writers among them, and older caches that were kept. Disturbs no writer.
  /// @return false when the folder cannot be read; `report`, which may be null, is told why
  static bool listLeftovers(const char* folder, CacheLeftoverFunction told, reportFunction report,
                            void* context);

  /// Removes one of them by its name, without its folder, when it still is of no use, or with
  /// `force` of use. Its lock is held until all is gone. Of data files go those of its identity.
  /// @return false when it was not, or not all of it; `report`, which may be null, is told why
  static bool removeLeftover(const char* folder, const char* name, bool force,
                             reportFunction report, void* context);

  /// Whether a folder of this name is one in which a writer gathers the files of a cache, which is
  /// none yet. Of the name alone, without its path.
  static bool isPartialFolder(const char* name);

  /// Told the name of a file, without its folder. `isReplaceable`: a writer puts its own over it;
  /// what is no NC data file is refused.
  using fileFunction = void (*)(void* context, const char* name, bool isReplaceable);

  /// The files that bear names of this cache's data files, in any layout and tag, whether its
  /// description exists or not, but for those of other caches.
  /// @param told  told about each; may be null
  static unsigned int dataFilesInTheWay(const char* folder, const char* baseName, fileFunction told,
                                        void* context);

 private:
  struct KEL_PRIVATE Impl;
  Impl* impl;
};

}  // namespace kelsdk
