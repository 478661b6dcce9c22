#include "backends/nc/recover.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "backends/io/replace.h"
#include "backends/nc/data_files.h"
#include "backends/nc/data_writer.h"
#include "backends/nc/file_ends.h"
#include "backends/nc/owners.h"
#include "backends/nc/remains.h"
#include "backends/nc/scan.h"
#include "backends/nc/standing.h"

namespace kelsdk::nc {
namespace {

using io::Error;

// What can be saved of what a dead writer left.
struct Salvage {
  Description description;
  std::vector<std::int32_t> ticks;                      ///< of whole time blocks
  std::vector<std::vector<std::int32_t>> channelTicks;  ///< per-frame layout: by channel
};

bool ScanFile(const std::string& path, Scan* scan, Error& error) {
  io::InputFile file;
  return file.Open(path.c_str(), error) && ScanRecords(file, file.Size(), scan, error);
}

bool IsFinished(const std::string& path, const Scan& scan) {
  io::InputFile file;
  Error ignored;
  FileEnd end;
  return file.Open(path.c_str(), ignored) && end.Read(file, ignored) && end.HasTrailer() &&
         end.GetTrailer().dataEnd == scan.end;
}

// Cuts a file after its last whole time block and gives it its indices.
bool FinishFile(const std::string& path, const Scan& scan, Error& error) {
  if (IsFinished(path, scan)) return true;
  DataWriter writer;
  return writer.Reopen(path, scan.header, scan.end, error) &&
         writer.Finish(scan.channels, scan.indices, scan.header.identity, scan.blockCount, error) &&
         writer.Close(error);
}

// Adds the channels that a file knows beyond those of the files before it.
bool MergeChannels(const Scan& scan, Salvage* salvage) {
  std::vector<Channel>& known = salvage->description.channels;
  for (std::size_t i = 0; i < scan.channels.size(); ++i) {
    if (i == known.size()) {
      known.push_back(scan.channels[i]);
    } else if (known[i].name != scan.channels[i].name || known[i].type != scan.channels[i].type) {
      return false;
    }
  }
  salvage->channelTicks.resize(known.size());
  return true;
}

void NoteTimes(const Scan& scan, Salvage* salvage) {
  for (std::size_t i = 0; i < scan.indices.size(); ++i) {
    for (const SampleEntry& entry : scan.indices[i]) {
      salvage->ticks.push_back(entry.tick);
      if (scan.header.isPerFrame) salvage->channelTicks[i].push_back(entry.tick);
    }
  }
}

// A per-frame file holds one time and bears its name.
bool IsNamedAfterItsTime(const Scan& scan, const std::string& base, const std::string& fileName) {
  std::optional<std::int32_t> tick;
  for (const std::vector<SampleEntry>& index : scan.indices) {
    if (index.size() > 1) return false;
    if (index.empty()) continue;
    if (tick && *tick != index.front().tick) return false;
    tick = index.front().tick;
  }
  if (!tick) return false;
  std::string expected;
  DataFileName(base, scan.header, *tick, &expected);
  return expected == fileName;
}

bool SaveFile(const Remains& remains, const std::string& fileName, Salvage* salvage,
              const io::Report& report, Error& error) {
  const std::string path = remains.partial.folder + fileName;
  Scan scan;
  Error why;
  const bool scanned = ScanFile(path, &scan, why);
  const Error& stop = scanned ? scan.stop : why;
  if (stop && !stop.IsAboutContent()) {
    // It may be whole, and can only not be read for now.
    error = stop;
    return false;
  }
  if (!scanned || scan.header.identity != remains.identity || scan.blockCount == 0) {
    report.Say("%s: holds no whole time block, dropped", fileName.c_str());
    ::unlink(path.c_str());
    return true;
  }
  if (scan.header.isPerFrame && !IsNamedAfterItsTime(scan, remains.partial.name.base, fileName)) {
    return error.Set(Error::eDamaged, "%.100s does not hold the time of its name",
                     fileName.c_str());
  }
  Description& description = salvage->description;
  description.identity = scan.header.identity;
  description.created = scan.header.created;
  description.SetLayout(scan.header);
  if (!MergeChannels(scan, salvage)) {
    return error.Set(Error::eDamaged, "%.100s has other channels than the files before it",
                     fileName.c_str());
  }
  NoteTimes(scan, salvage);
  return FinishFile(path, scan, error);
}

void SortUnique(std::vector<std::int32_t>* ticks) {
  std::sort(ticks->begin(), ticks->end());
  ticks->erase(std::unique(ticks->begin(), ticks->end()), ticks->end());
}

// Completes the data files and describes what they hold. Nothing is saved of a cache without a
// whole time block.
bool Rebuild(const Remains& remains, Salvage* salvage, const io::Report& report, Error& error) {
  for (const std::string& fileName : remains.dataFiles) {
    if (!SaveFile(remains, fileName, salvage, report, error)) return false;
  }
  SortUnique(&salvage->ticks);
  if (salvage->description.isPerFrame) {
    for (auto& ticks : salvage->channelTicks) SortUnique(&ticks);
    DescribeTimes(Times(salvage->ticks),
                  std::vector<Times>(salvage->channelTicks.begin(), salvage->channelTicks.end()),
                  &salvage->description);
  }
  return true;
}

// The time blocks of a cache whose files are complete, wherever they are by now.
std::uint32_t CountBlocks(const Remains& remains) {
  const Description& description = *remains.complete;
  if (description.isPerFrame) return description.times.Count();
  std::string fileName;
  const CacheName& name = remains.partial.name;
  DataFiles(remains.begunAs.value_or(name.base), description).Name(0, &fileName);
  Scan scan;
  Error ignored;
  if (!ScanFile((remains.begunAs ? name.folder : remains.partial.folder) + fileName, &scan,
                ignored)) {
    return 0;
  }
  std::vector<std::int32_t> ticks;
  for (const auto& index : scan.indices) {
    for (const SampleEntry& entry : index) ticks.push_back(entry.tick);
  }
  SortUnique(&ticks);
  return static_cast<std::uint32_t>(ticks.size());
}

bool RemoveEmptied(const Remains& remains, Error& error) {
  return io::Remove(remains.partial.DescriptionPath().c_str(), error) &&
         (::rmdir(remains.partial.folder.c_str()) == 0 ||
          error.SetSystem(errno, "removing the folder"));
}

// Puts a cache into its place, or beside what stands there.
class Placing {
 public:
  Placing(Remains* remains, bool force, const io::Report& report)
      : remains_(*remains), name_(remains->partial.name), force_(force), report_(report) {}

  // Before anything is changed.
  bool Look(Error& error) {
    standing_ = LookAtStanding(name_);
    isNewer_ = standing_.description && standing_.description->created > remains_.created;
    if (IsBegunBeside() || (!force_ && !remains_.begunAs)) return true;
    if (standing_.unreadable) {
      // What belongs to it, and whether it is newer, is not known.
      return error.Set(standing_.unreadable.kind(), "the cache that stands there: %.128s",
                       standing_.unreadable.text());
    }
    if (!isNewer_ || !force_) return true;
    return error.Set(Error::eRefused,
                     "begun before the cache that stands there, and not put in its place; "
                     "recovered without force it goes beside it");
  }

  bool Place(Description* description, Error& error) {
    if (remains_.begunAs && (IsBegunBeside() || !isNewer_)) {
      remains_.partial.target.base = *remains_.begunAs;
      return Continue(*description, error);
    }
    bool isKept = false;
    if (!ChooseTarget(*description, error)) return false;
    if (!IsBeside() && !Keep(*description, &isKept, error)) return false;
    return remains_.begunAs ? Continue(*description, error)
                            : Publish(&remains_.partial, description, isKept, error);
  }

  void SayWhere(std::uint32_t blockCount) const {
    const std::string base = name_.base + ".xml";
    const std::string stays = IsBeside() ? "; " + base + " stays as it is" : "";
    report_.Say("%u whole time blocks saved as %s.xml%s", blockCount,
                remains_.partial.target.base.c_str(), stays.c_str());
  }

 private:
  bool IsBeside() const { return remains_.partial.target.base != name_.base; }
  bool IsBegunBeside() const { return remains_.begunAs && *remains_.begunAs != name_.base; }

  // Its data files may have replaced others already, which were looked at before.
  bool Continue(const Description& description, Error& error) {
    return CheckPlaces(remains_.partial.target, description, true, error) &&
           CompletePublication(&remains_.partial, description, error);
  }

  bool ChooseTarget(const Description& description, Error& error) {
    bool beside = isNewer_ || (standing_.state == Standing::eWhole && !force_);
    const bool isDamaged = standing_.state == Standing::eDamaged;
    if (!beside && !CheckPlaces(name_, description, isDamaged, error)) {
      if (force_) return false;
      report_.Say("%s", error.text());
      error.Clear();
      beside = true;
    }
    return !beside || FindFreeBase(name_, remains_.identity, &remains_.partial.target.base, error);
  }

  bool Keep(const Description& description, bool* isKept, Error& error) {
    std::string keptAs;
    if (!KeepOlder(name_, standing_, description, &keptAs, error)) return false;
    *isKept = !keptAs.empty();
    if (!*isKept) return true;
    if (standing_.state == Standing::eNothing) {
      report_.Say("the data files in the way are kept as %s.*", keptAs.c_str());
    } else {
      report_.Say("the older cache is kept as %s.xml", keptAs.c_str());
    }
    return true;
  }

  Remains& remains_;
  const CacheName& name_;
  const bool force_;
  const io::Report& report_;
  Standing standing_;
  bool isNewer_ = false;  // than what is recovered
};

enum EOutcome { eSaved, eFailed, eNothingWhole };

EOutcome RecoverOne(Remains* remains, bool force, std::uint32_t* blockCount,
                    const io::Report& report, Error& error) {
  Placing placing(remains, force, report);
  if (!placing.Look(error)) return eFailed;
  Salvage salvage;
  if (remains->complete) {
    *blockCount = CountBlocks(*remains);
    salvage.description = *remains->complete;
  } else {
    if (!Rebuild(*remains, &salvage, report, error)) return eFailed;
    if (salvage.ticks.empty()) return eNothingWhole;
    *blockCount = static_cast<std::uint32_t>(salvage.ticks.size());
  }
  if (!placing.Place(&salvage.description, error)) return eFailed;
  placing.SayWhere(*blockCount);
  return eSaved;
}

}  // namespace

bool Recover(const CacheName& name, bool force, std::uint32_t* blockCount,
             const io::Report& report) {
  *blockCount = 0;
  Error error;
  std::optional<Remains> remains;
  while (FindRemains(name, &remains, report, error) && remains) {
    const std::string folder = remains->partial.folder;
    const EOutcome outcome = RecoverOne(&*remains, force, blockCount, report, error);
    if (outcome == eSaved) return true;
    *blockCount = 0;
    if (outcome == eFailed || !RemoveEmptied(*remains, error)) {
      report.Say("%s: %s", folder.c_str(), error.text());
      return false;
    }
    report.Say("%s: holds no whole time block, removed", folder.c_str());
  }
  report.Say("%s: %s", name.base.c_str(), error ? error.text() : "nothing to recover");
  return false;
}

}  // namespace kelsdk::nc
