#pragma once

#include <cstdint>

#include "backends/CacheLeftover.h"
#include "backends/CacheProgress.h"
#include "host/KelApi.h"

namespace kelsdk {

/// Reads or writes one PC2 point cache: a 32-byte header, then for each sample x, y, z of every
/// point as little-endian 32-bit floats. docs/pc2-format.md gives the bytes.
///
/// Samples count from 0, the first one in the file, whatever frame the header starts at. Every
/// failure is a value; nothing throws. One object serves one file and one call at a time.
class KEL_API zuPointCache2IO {
 public:
  enum openMode { readMode = 0, writeMode = 1 };

  zuPointCache2IO();
  zuPointCache2IO(const zuPointCache2IO&) = delete;
  zuPointCache2IO& operator=(const zuPointCache2IO&) = delete;

  /// Closes the file. A write that endWriteData has not ended leaves its partial file, with the
  /// samples written so far, beside the target, which is untouched.
  virtual ~zuPointCache2IO();

  /// Opens a file for reading, or prepares to write one.
  /// Reading: true when the file begins with the PC2 signature and a whole header, which the fields
  /// below then hold. A version other than 1 is let through with nothing else looked at; of
  /// version 1 are refused a negative point count, a sample that does not fit 32 bits, and a file
  /// without room for its first sample when it claims any. The sample count has no sign.
  /// Writing: true when the target may be replaced; a directory, another special file and a file
  /// without write permission are refused. Nothing is made on disk yet.
  bool initialize(const char* fileName, openMode mode);

  /// Begins the file beside its target, under a temporary name. Refuses negative counts.
  /// @param startFrame  the frame of sample 0
  /// @param sampleRate  frames from one sample to the next
  bool beginWriteData(int pointCount, int sampleCount, float startFrame, float sampleRate);

  /// Reads the first `pointCount` points of a sample into `buffer` (pointCount x 3 floats) with at
  /// most one positioned read. More points than the file has: only the file's are written, and
  /// `pointCount` becomes their number. False, with `buffer` untouched, for a sample that the file
  /// does not hold whole; after a device error its contents are unspecified.
  bool readSample(unsigned int sampleIndex, float* buffer, unsigned int& pointCount);

  /// Writes one sample (the header's pointCount x 3 floats). Any order, any number of times; a
  /// sample outside the declared count is refused.
  bool writeSample(int sampleIndex, float* buffer);

  /// The same for `sampleCount` whole samples that follow one another, with one system call for
  /// all: for copying caches of few points. `buffer` holds sampleCount x pointCount x 3 floats.
  bool readSamples(unsigned int firstSample, unsigned int sampleCount, float* buffer);
  bool writeSamples(unsigned int firstSample, unsigned int sampleCount, const float* buffer);

  /// Completes the file to its declared size (samples never written are zero), makes it durable and
  /// puts it in the target's place at once. False, with the target untouched and the partial file
  /// kept, when that failed or when a sample could not be written earlier.
  bool endWriteData();

  // Maintenance, beyond what the cache object uses.

  /// Gives a write up: removes what it has made. Without effect once endWriteData has published.
  void discardWrite();

  /// Why the last call that failed did so, in words, without the file's name; "" when none failed.
  /// Valid until the next call.
  const char* errorString() const;

  /// The whole samples that the open file holds, which is sampleCount or, in a file cut short,
  /// less.
  unsigned int wholeSampleCount() const;

  /// The bytes of a file that holds every sample which the header of the file open for reading
  /// claims; 0 for a version other than 1.
  std::uint64_t promisedSize() const;

  /// Told one line, without a final line break.
  using reportFunction = void (*)(void* context, const char* line);

  /// Told how much of a long call is done, in parts of its own size; false ends it.
  using proceedFunction = bool (*)(void* context, unsigned long long done,
                                   unsigned long long total);

  /// Reads everything of a file, which has no checksums: its header must make sense and agree with
  /// its size, and every sample must be readable.
  /// @return true when all is sound; otherwise every problem has been reported
  /// @param proceed  may be null; a call that it ended is reported and not sound
  static bool verify(const char* fileName, reportFunction report, void* context,
                     proceedFunction proceed = nullptr);

  struct recoverOptions {
    /// Put what is recovered in the place of a whole file too, which is then kept beside it.
    bool force = false;
  };

  /// Completes what a dead writer of `fileName` left behind: the newest partial file that no living
  /// writer holds is cut after its last whole sample and its count is corrected. It takes the name
  /// where no whole file stands; a damaged one that does is kept as "shot.before-recover.pc2". A
  /// whole file stays as it is, and what was recovered goes beside it as "shot.recovered.pc2", or
  /// with `force` in its place while the older one is kept as "shot.before-recover.pc2". Taken
  /// names are numbered ("shot.recovered2.pc2"). Never put in the place of a file written later,
  /// with `force` neither.
  /// @param sampleCount  out: the whole samples saved
  /// @return false when there is nothing to recover, it holds no whole sample, or it could not be
  ///         published; `report`, which may be null, is told what was found and under which names
  ///         files were saved and kept
  static bool recover(const char* fileName, const recoverOptions& options,
                      unsigned int& sampleCount, reportFunction report, void* context);
  /// The same without `force`.
  static bool recover(const char* fileName, unsigned int& sampleCount, reportFunction report,
                      void* context);

  /// The partial files beside `fileName`, which need not exist, that recover could save something
  /// of: those of dead writers. Lists one folder; touches no living writer.
  /// @param report  told one line about each; may be null
  static unsigned int leftovers(const char* fileName, reportFunction report, void* context);

  /// Follows a writer of `fileName` that is at work, the one that began last: what it gathers is
  /// looked at, `told` of it, and so on until it is published, given up or its writer has died.
  /// Disturbs no writer.
  /// @param report  told when there are several; may be null. It has the same context
  /// @return false when none is at work, and nothing was told
  static bool follow(const char* fileName, CacheProgressFunction told, reportFunction report,
                     void* context);

  /// Lists what dead writers and recoveries of PC2 files left in a folder: partial files, those of
  /// living writers among them, and older files that were kept. Disturbs no writer.
  /// @return false when the folder cannot be read; `report`, which may be null, is told why
  static bool listLeftovers(const char* folder, CacheLeftoverFunction told, reportFunction report,
                            void* context);

  /// Removes one of them by its name, without its folder, when it still is of no use, or with
  /// `force` of use. Its lock is held until all is gone.
  /// @return false when it was not; `report`, which may be null, is told why
  static bool removeLeftover(const char* folder, const char* name, bool force,
                             reportFunction report, void* context);

 private:
  struct KEL_PRIVATE Impl;
  Impl* impl;

 public:
  // The header of the open file, as initialize (reading) or beginWriteData (writing) set it.
  std::int32_t version = 0;
  std::uint32_t pointCount = 0;   ///< points per sample
  float startFrame = 0;           ///< frame of sample 0
  float sampleRate = 0;           ///< frames from one sample to the next
  std::uint32_t sampleCount = 0;  ///< samples that the header claims
};

}  // namespace kelsdk
