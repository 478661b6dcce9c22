#include "backends/nc/recover.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <optional>

#include "backends/nc/data_writer.h"
#include "backends/nc/publish.h"
#include "backends/nc/scan.h"

namespace kelsdk::nc {
namespace {

using io::Error;

// What a dead writer left.
struct Remains {
  Partial partial;
  Identity identity = {};
  std::uint64_t created = 0;
  std::vector<std::string> dataFiles;
  std::optional<Description> complete;  ///< when publication had begun
};

// What can be saved of it.
struct Salvage {
  Description description;
  std::vector<std::int32_t> ticks;                      ///< of whole time blocks
  std::vector<std::vector<std::int32_t>> channelTicks;  ///< per-frame layout: by channel
};

bool ScanFile(const std::string& path, Scan* scan, Error& error) {
  io::InputFile file;
  return file.Open(path.c_str(), error) && ScanRecords(file, file.Size(), scan, error);
}

// A file that cannot be read for now may be whole: only what its bytes say drops or cuts it.
bool IsAboutContent(const Error& error) {
  return !error || error.kind() == Error::eCutShort || error.kind() == Error::eDamaged ||
         error.kind() == Error::eUnsupported;
}

bool IsFinished(const std::string& path, const Scan& scan) {
  io::InputFile file;
  Error ignored;
  std::uint8_t bytes[kTrailerSize];
  Trailer trailer;
  return file.Open(path.c_str(), ignored) && file.Size() >= kTrailerSize &&
         file.ReadAt(file.Size() - kTrailerSize, bytes, sizeof bytes, ignored) &&
         LoadTrailer(bytes, &trailer) && trailer.dataEnd == scan.end;
}

// Cuts a file after its last whole time block and gives it its indices.
bool FinishFile(const std::string& path, const Scan& scan, Error& error) {
  if (IsFinished(path, scan)) return true;
  DataWriter writer;
  return writer.Reopen(path, scan.end, error) &&
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
  FrameFileName(base, scan.header.isCompact ? "ncc" : "ncx", scan.header.ticksPerFrame, *tick,
                &expected);
  return expected == fileName;
}

bool SaveFile(const Remains& remains, const std::string& fileName, Salvage* salvage,
              const Report& report, Error& error) {
  const std::string path = remains.partial.folder + fileName;
  Scan scan;
  Error why;
  const bool scanned = ScanFile(path, &scan, why);
  const Error& stop = scanned ? scan.stop : why;
  if (!IsAboutContent(stop)) {
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
  description.isCompact = scan.header.isCompact;
  description.isPerFrame = scan.header.isPerFrame;
  description.ticksPerFrame = scan.header.ticksPerFrame;
  description.exactRate = scan.header.exactRate;
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

void DescribeTimes(Salvage* salvage) {
  for (const std::int32_t tick : salvage->ticks) salvage->description.times.Append(tick);
  for (std::size_t i = 0; i < salvage->channelTicks.size(); ++i) {
    std::vector<std::int32_t>& ticks = salvage->channelTicks[i];
    SortUnique(&ticks);
    Channel& channel = salvage->description.channels[i];
    channel.hasOwnTimes = ticks != salvage->ticks;
    if (!channel.hasOwnTimes) continue;
    for (const std::int32_t tick : ticks) channel.times.Append(tick);
  }
}

bool Rebuild(Remains* remains, std::uint32_t* blockCount, const Report& report, Error& error) {
  Salvage salvage;
  for (const std::string& fileName : remains->dataFiles) {
    if (!SaveFile(*remains, fileName, &salvage, report, error)) return false;
  }
  SortUnique(&salvage.ticks);
  if (salvage.ticks.empty()) {
    return error.Set(Error::eRefused, "the partial cache holds no whole time block");
  }
  if (salvage.description.isPerFrame) DescribeTimes(&salvage);
  *blockCount = static_cast<std::uint32_t>(salvage.ticks.size());
  return Publish(&remains->partial, &salvage.description, error);
}

// The time blocks of a cache whose files are complete, wherever they are by now.
std::uint32_t CountBlocks(const Remains& remains) {
  const Description& description = *remains.complete;
  if (description.isPerFrame) return description.times.Count();
  std::string fileName;
  SingleFileName(remains.partial.name.base, description.Tag(), &fileName);
  Scan scan;
  Error ignored;
  if (!ScanFile(remains.partial.folder + fileName, &scan, ignored) &&
      !ScanFile(remains.partial.name.folder + fileName, &scan, ignored)) {
    return 0;
  }
  std::vector<std::int32_t> ticks;
  for (const auto& index : scan.indices) {
    for (const SampleEntry& entry : index) ticks.push_back(entry.tick);
  }
  SortUnique(&ticks);
  return static_cast<std::uint32_t>(ticks.size());
}

std::uint64_t CreationOf(const Remains& remains) {
  if (remains.complete) return remains.complete->created;
  for (const std::string& fileName : remains.dataFiles) {
    io::InputFile file;
    FileHeader header;
    Error ignored;
    if (file.Open((remains.partial.folder + fileName).c_str(), ignored) &&
        RecordScanner(file, file.Size()).ReadFileHeader(&header, ignored)) {
      return header.created;
    }
  }
  return 0;
}

// False when a living writer holds it or there is nothing of use in it.
bool LookAt(const CacheName& name, const std::string& folderName, Remains* remains,
            const Report& report) {
  Partial& partial = remains->partial;
  partial.name = name;
  partial.folder = name.folder + folderName + "/";
  Error error;
  const std::string descriptionPath = partial.DescriptionPath();
  if (!partial.description.OpenExisting(descriptionPath.c_str(), error)) {
    report.Say("%s: %s", folderName.c_str(), error.text());
    return false;
  }
  Description description;
  if (ReadDescription(descriptionPath, &description, error) &&
      description.identity == remains->identity) {
    remains->complete = std::move(description);
  }
  std::vector<std::string> names;
  if (!ListFolder(partial.folder, &names, error)) return false;
  for (std::string& fileName : names) {
    if (IsDataFileName(fileName, name.base)) remains->dataFiles.push_back(std::move(fileName));
  }
  std::sort(remains->dataFiles.begin(), remains->dataFiles.end());
  remains->created = CreationOf(*remains);
  return remains->complete || !remains->dataFiles.empty();
}

// A publication that was interrupted after its last rename leaves an empty folder.
bool FinishedJustNow(const CacheName& name, const std::string& folderName, const Identity& identity,
                     const std::optional<Description>& standing) {
  if (!standing || standing->identity != identity) return false;
  Partial partial;
  partial.name = name;
  partial.folder = name.folder + folderName + "/";
  if (::access(partial.DescriptionPath().c_str(), F_OK) == 0) return false;
  FinishPublication(partial, *standing);
  return true;
}

std::optional<Remains> FindNewest(const CacheName& name, const std::vector<std::string>& names,
                                  const Report& report) {
  std::optional<Remains> newest;
  for (const std::string& folderName : names) {
    const auto identity = ParsePartialFolderName(folderName, name.base);
    if (!identity) continue;
    Remains remains;
    remains.identity = *identity;
    if (!LookAt(name, folderName, &remains, report)) continue;
    if (newest) {
      const bool isNewer = remains.created > newest->created;
      report.Say("%s: an older attempt, left as it is",
                 (isNewer ? newest->partial : remains.partial).folder.c_str());
      if (!isNewer) continue;
    }
    newest = std::move(remains);
  }
  return newest;
}

}  // namespace

void Report::Say(const char* format, ...) const {
  if (function == nullptr) return;
  char line[1024];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  function(context, line);
}

bool Recover(const CacheName& name, std::uint32_t* blockCount, const Report& report) {
  *blockCount = 0;
  Error error;
  std::vector<std::string> names;
  if (!ListFolder(name.folder, &names, error)) {
    report.Say("%s: %s", name.folder.c_str(), error.text());
    return false;
  }
  std::optional<Description> standing(std::in_place);
  if (!ReadDescription(name.DescriptionPath(), &*standing, error)) standing.reset();
  for (const std::string& folderName : names) {
    const auto identity = ParsePartialFolderName(folderName, name.base);
    if (identity && FinishedJustNow(name, folderName, *identity, standing)) {
      report.Say("%s: was in place already, cleaned up", folderName.c_str());
    }
  }
  std::optional<Remains> remains = FindNewest(name, names, report);
  if (!remains) {
    report.Say("%s: nothing to recover", name.base.c_str());
    return false;
  }
  if (standing && standing->created > remains->created) {
    report.Say(
        "%s: begun before the cache that stands there, left as it is; to have it all the "
        "same move %s.xml away",
        remains->partial.folder.c_str(), name.base.c_str());
    return false;
  }
  bool published = false;
  if (remains->complete) {
    *blockCount = CountBlocks(*remains);
    published = CompletePublication(&remains->partial, *remains->complete, error);
  } else {
    published = Rebuild(&*remains, blockCount, report, error);
  }
  if (published) {
    report.Say("%s: %u whole time blocks saved", name.base.c_str(), *blockCount);
  } else {
    *blockCount = 0;
    report.Say("%s: %s", remains->partial.folder.c_str(), error.text());
  }
  return published;
}

}  // namespace kelsdk::nc
