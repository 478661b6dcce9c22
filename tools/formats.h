#pragma once

#include <exception>
#include <functional>
#include <optional>
#include <string>

#include "tools/moment.h"
#include "tools/values.h"
#include "tools/watch.h"

namespace kelcache {

/// Told one line about a file.
using Say = std::function<void(const std::string& line)>;

using LeftoverFunction = std::function<void(const kelsdk::CacheLeftover& leftover)>;

/// Between a back-end that verifies, through which nothing may be thrown, and a watch.
class VerifyReport {
 public:
  VerifyReport(const std::string& file, const Say& say, Watch& watch)
      : file_(file), say_(say), watch_(watch) {}
  /// What the back-ends call, with this as the context.
  static void Line(void* report, const char* line);
  static bool Proceed(void* report, unsigned long long done, unsigned long long total);
  /// Throws what the watch threw.
  void Finish() const;

 private:
  const std::string& file_;
  const Say& say_;
  Watch& watch_;
  bool begun_ = false;
  std::exception_ptr thrown_;
};

/// Between a back-end that follows a writer, through which nothing may be thrown, and who looks on.
class FollowReport {
 public:
  using LookFunction = std::function<void(const kelsdk::CacheProgress& progress)>;

  FollowReport(LookFunction look, Say say) : look_(std::move(look)), say_(std::move(say)) {}
  /// What the back-ends call, with this as the context.
  static bool Look(void* report, const kelsdk::CacheProgress& progress);
  static void Line(void* report, const char* line);
  /// Throws what was thrown in a look.
  void Finish() const;

 private:
  LookFunction look_;
  Say say_;
  std::exception_ptr thrown_;
};

/// The last of the samples around one that their archive keeps only once, and what tells these
/// bytes from all others of the archive; 0 for no bytes.
struct SampleRun {
  unsigned int last = 0;
  unsigned long long identity = 0;
  const void* archive = nullptr;  ///< which one, of several that are open
  unsigned int variant = 0;       ///< what the bytes become on their way into a copy
};

/// Samples at even steps, in frames.
struct Spacing {
  double start = 0;
  double interval = 1;
};

/// All that the command knows of a format. Functions throw eFailed with the reason in words; null
/// where the format has no such thing.
struct FormatRow {
  Format format;
  const char* name;           ///< for --as and --json
  const char* extension;      ///< ".pc2"
  const char* whyNotWritten;  ///< null: the command writes it
  std::string (*forms)();     ///< of the format that this build knows, for --version
  bool ownsExtension;         ///< the extension is part of the cache's name, to the letter
  bool hasLayouts;            ///< takes --per-frame, --compact, --channels ...
  bool storesRate;            ///< frames per second
  bool assumesRate;           ///< has none, stored or derived

  /// Whether a folder of this name is a writer's own. Null: the format has none.
  bool (*isWritersFolder)(const std::string& name);
  /// Whether a file of the extension is a cache. Null: any is.
  bool (*isOne)(const std::string& file);

  void (*summarise)(CacheFile& cache, CacheSummary* summary);

  /// The moment of a sample.
  Moment (*momentOf)(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
                     unsigned int sample);
  /// The elements at a moment: of an archive those of its sample, not of the largest.
  unsigned int (*elementsAt)(CacheFile& cache, const CacheSummary& summary,
                             const ChannelSummary& channel, const Moment& moment);
  /// The values at a moment as they are stored, in `room`.
  Array (*fetch)(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
                 const Moment& moment, Room* room);
  /// Several whole samples that follow one another, at once, as they are stored. False when that
  /// failed; one by one they tell why.
  bool (*fetchRun)(CacheFile& cache, unsigned int firstSample, unsigned int samples, void* values);
  /// The samples around one that are kept only once.
  SampleRun (*runOf)(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
                     const Moment& moment);
  /// How the samples from `first` on are spaced, where the format itself can tell; empty when they
  /// are not even. Null: their times are measured.
  std::optional<Spacing> (*spacing)(CacheFile& cache, const CacheSummary& summary,
                                    const ChannelSummary& channel, const Moment& first);

  /// Reads everything and says each problem; what the proceeding throws ends it.
  void (*verify)(const std::string& file, VerifyReport* report);
  /// Whether `fails` holds for one of the cache's files.
  bool (*anyFile)(const std::string& file, const std::function<bool(const std::string&)>& fails);
  /// Completes what a dead writer left; false when that could not be done.
  bool (*recover)(const std::string& file, bool force, const Say& say);
  /// How many parts of caches dead writers left beside a file, which need not exist.
  unsigned int (*leftovers)(const std::string& file);
  /// Follows a writer that is at work; false when none is.
  bool (*follow)(const std::string& file, FollowReport* report);
  /// Tells of all that dead writers and recoveries left in a folder; false, with the reason, when
  /// it cannot be read.
  bool (*listLeftovers)(const std::string& folder, const LeftoverFunction& told, const Say& say);
  /// Removes one of them by its name; false, with the reason, when it was not.
  bool (*removeLeftover)(const std::string& folder, const std::string& name, bool force,
                         const Say& say);
  /// Throws where files besides the target itself are in the way of writing it.
  void (*expectFree)(const std::string& file, bool force);
  void (*listTree)(CacheFile& cache, const Say& say);
};

const FormatRow& RowOf(Format format);
std::vector<const FormatRow*> AllRows();

/// The format that a file's extension tells, or `asName` when it is not empty. Throws eUsage for an
/// extension that tells none, and for one that the format does not leave open.
Format FormatOf(const std::string& file, const std::string& asName);

/// Whether a file in a folder is a cache, going by its extension and, where other files bear that
/// too, by how it begins.
bool IsCacheName(const std::string& file);

/// Whether a folder of this name is one in which a writer gathers what is no cache yet.
bool IsWritersFolder(const std::string& name);

/// "pc2", "nc" and so on, separated by `separator`.
std::vector<std::string> FormatNames();

/// Throws eUsage for a format that is only read.
void ExpectWritten(Format format, const std::string& file);

/// @param rate  frames per second that the user gave; else not valid
CacheSummary Summarise(CacheFile& cache, const kelsdk::KelFrameRate& rate = {0, 0});

// The rows, each in a source of its own.
extern const FormatRow kPC2Row;
extern const FormatRow kNCRow;
extern const FormatRow kAlembicRow;

/// For the back-ends' report functions: `say` is the context.
void SayLine(void* say, const char* line);

/// What the back-ends that list leftovers have in common.
using ListFunction = bool (*)(const char* folder, kelsdk::CacheLeftoverFunction told,
                              void (*report)(void* context, const char* line), void* context);
bool ListLeftovers(ListFunction list, const std::string& folder, const LeftoverFunction& told,
                   const Say& say);

/// Bytes of a file; 0 for one that is not there.
std::uint64_t SizeOfFile(const std::string& path);

}  // namespace kelcache
