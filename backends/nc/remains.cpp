#include "backends/nc/remains.h"

#include <algorithm>

#include "backends/io/beside.h"
#include "backends/io/folder.h"
#include "backends/io/input_file.h"
#include "backends/nc/data_files.h"
#include "backends/nc/file_ends.h"
#include "backends/nc/scan.h"

namespace kelsdk::nc {
namespace {

using io::Error;

Partial PartialIn(const CacheName& name, const std::string& folderName) {
  Partial partial;
  partial.name = partial.target = name;
  partial.folder = name.folder + folderName + "/";
  return partial;
}

// Calls `visit` with the base names under which the cache may have been put in place.
template <typename Visit>
bool ForEachBase(const std::string& base, Visit&& visit) {
  if (visit(base)) return true;
  for (unsigned int attempt = 1; attempt <= io::kMostNames; ++attempt) {
    if (visit(io::NumberedName(base + io::kRecoveredSuffix, attempt))) return true;
  }
  return false;
}

// Finds the data files of a complete description in the folder or where an interrupted publication
// has put them.
class DataFileSearch {
 public:
  explicit DataFileSearch(Remains* remains) : remains_(*remains), name_(remains->partial.name) {}

  // eNotFound when one is nowhere; any other error leaves open where it is.
  bool FindAll(Error& error) {
    return DataFiles(name_.base, *remains_.complete).ForEach([&](const std::string& fileName) {
      const std::vector<std::string>& here = remains_.dataFiles;
      if (std::binary_search(here.begin(), here.end(), fileName) || IsPlaced(fileName)) return true;
      if (unclear_) {
        error = unclear_;
        return false;
      }
      return error.Set(Error::eNotFound, "%.100s, which belongs to it, is gone", fileName.c_str());
    });
  }

 private:
  bool IsPlaced(const std::string& fileName) {
    if (remains_.begunAs) {
      return IsUnder(fileName, *remains_.begunAs) || IsUnder(fileName, name_.base);
    }
    return ForEachBase(name_.base, [&](const std::string& base) {
      if (!IsUnder(fileName, base)) return false;
      remains_.begunAs = base;
      return true;
    });
  }

  bool IsUnder(const std::string& fileName, const std::string& base) {
    const std::string path = name_.folder + RenamedDataFile(fileName, name_.base, base);
    Identity identity = {};
    Error why;
    if (ReadFileIdentity(path, &identity, why)) return identity == remains_.identity;
    if (why.kind() != Error::eNotFound && !why.IsAboutContent()) unclear_ = why;
    return false;
  }

  Remains& remains_;
  const CacheName& name_;
  Error unclear_;
};

std::uint64_t CreationOf(const Remains& remains) {
  if (remains.complete) return remains.complete->created;
  for (const std::string& fileName : remains.dataFiles) {
    io::InputFile file;
    FileHeader header;
    Error ignored;
    if (file.Open((remains.partial.folder + fileName).c_str(), ignored) &&
        ReadFileHeader(file, &header, ignored)) {
      return header.created;
    }
  }
  return 0;
}

// Takes a description that is complete; what lacks data files of it is as good as one that is not,
// unless some are in place already.
bool TakeDescription(Remains* remains, Error& error) {
  Description description;
  if (!ReadDescription(remains->partial.DescriptionPath(), &description, error)) {
    return error.IsAboutContent();
  }
  if (description.identity != remains->identity) return true;
  remains->complete = std::move(description);
  if (DataFileSearch(remains).FindAll(error)) return true;
  const bool isGone = error.kind() == Error::eNotFound;
  if (!isGone || remains->begunAs || remains->dataFiles.empty()) return false;
  remains->complete.reset();
  return true;
}

bool ListDataFiles(Remains* remains, Error& error) {
  const Partial& partial = remains->partial;
  std::vector<std::string> names;
  if (!io::ListFolder(partial.folder, &names, error)) return false;
  for (std::string& fileName : names) {
    if (IsDataFileName(fileName, partial.name.base)) {
      remains->dataFiles.push_back(std::move(fileName));
    }
  }
  std::sort(remains->dataFiles.begin(), remains->dataFiles.end());
  return true;
}

// False when a living writer holds it, it cannot be looked at or there is nothing of use in it.
bool LookInto(Remains* remains, Error& error) {
  Partial& partial = remains->partial;
  if (!ListDataFiles(remains, error)) return false;
  if (!partial.description.OpenExisting(partial.DescriptionPath().c_str(), error) ||
      !TakeDescription(remains, error)) {
    return false;
  }
  error.Clear();
  remains->created = CreationOf(*remains);
  return remains->complete || !remains->dataFiles.empty();
}

// Whether recovery finds a whole time block in a data file: it reads up to the end of the first.
bool HoldsWholeBlock(const std::string& path, const Identity& identity, bool* holds, Error& error) {
  *holds = false;
  io::InputFile file;
  RecordHeader header;
  Scan scan;
  if (!file.Open(path.c_str(), error)) return error.kind() == Error::eNotFound;
  RecordScanner scanner(file, file.Size());
  while (scanner.Next(&header, error) && header.kind != eBlockEndRecord) {
  }
  if (error && !error.IsAboutContent()) return false;
  const bool isScanned = ScanRecords(file, scanner.Position(), &scan, error);
  const Error& stop = isScanned ? scan.stop : error;
  if (stop && !stop.IsAboutContent()) {
    error = stop;
    return false;
  }
  error.Clear();
  *holds = isScanned && scan.blockCount != 0 && scan.header.identity == identity;
  return true;
}

bool IsMoreUrgent(const Remains& remains, const Remains& other) {
  if (remains.begunAs.has_value() != other.begunAs.has_value()) return remains.begunAs.has_value();
  return remains.created > other.created;
}

void SayLeft(const Remains& remains, const io::Report& report) {
  report.Say("%s: another attempt, left as it is; recover again saves it",
             remains.partial.folder.c_str());
}

// A description without data files beside it is of use as long as those are in place.
bool HasDataInPlace(const Partial& partial, const Identity& identity) {
  Remains remains;
  remains.partial.name = partial.name;
  remains.identity = identity;
  Description description;
  Error ignored;
  if (!ReadDescription(partial.DescriptionPath(), &description, ignored)) return false;
  remains.complete = std::move(description);
  return DataFileSearch(&remains).FindAll(ignored);
}

// The lock is asked for last: a writer takes its own before it makes a data file, and must not meet
// ours.
bool IsLeftover(const Partial& partial, const Identity& identity) {
  std::vector<std::string> names;
  Error ignored;
  if (!ListFolder(partial.folder, &names, ignored)) return false;
  const bool hasData = std::any_of(names.begin(), names.end(), [&](const std::string& fileName) {
    return IsDataFileName(fileName, partial.name.base);
  });
  return (hasData || HasDataInPlace(partial, identity)) &&
         !io::OutputFile::IsHeld(partial.DescriptionPath().c_str());
}

}  // namespace

bool FindRemains(const CacheName& name, std::optional<Remains>* found, const io::Report& report,
                 Error& error) {
  std::vector<std::string> names;
  if (!ListFolder(name.folder, &names, error)) return false;
  found->reset();
  for (const std::string& folderName : names) {
    const auto identity = ParsePartialFolderName(folderName, name.base);
    if (!identity) continue;
    Remains remains;
    remains.identity = *identity;
    remains.partial = PartialIn(name, folderName);
    Error why;
    if (!LookInto(&remains, why)) {
      const bool isEmpty = !remains.complete && remains.dataFiles.empty();
      if (why.kind() == Error::eNotFound && isEmpty) {
        if (FinishPublished(name, folderName)) {
          report.Say("%s: was in place already, cleaned up", folderName.c_str());
        }
      } else if (why) {
        report.Say("%s: %s", folderName.c_str(), why.text());
      }
    } else if (!*found || IsMoreUrgent(remains, **found)) {
      if (*found) SayLeft(**found, report);
      *found = std::move(remains);
    } else {
      SayLeft(remains, report);
    }
  }
  return true;
}

bool FinishPublished(const CacheName& name, const std::string& folderName) {
  const auto identity = ParsePartialFolderName(folderName, name.base);
  Partial partial = PartialIn(name, folderName);
  return identity && ForEachBase(name.base, [&](const std::string& base) {
           partial.target.base = base;
           Description description;
           Error ignored;
           if (!ReadDescription(partial.target.DescriptionPath(), &description, ignored) ||
               description.identity != *identity) {
             return false;
           }
           FinishPublication(partial, description);
           return true;
         });
}

bool FindUse(const CacheName& name, const std::string& folderName, Use* use, Error& error) {
  *use = Use();
  Remains remains;
  remains.identity = ParsePartialFolderName(folderName, name.base).value_or(Identity{});
  remains.partial = PartialIn(name, folderName);
  if (!ListDataFiles(&remains, error)) return false;
  const bool isTaken = TakeDescription(&remains, error);
  if (remains.begunAs) use->kind = Use::eHalfPlaced;
  if (!isTaken && !remains.begunAs && error.kind() != Error::eNotFound) return false;
  error.Clear();
  use->hasDescription = io::IsTaken(remains.partial.DescriptionPath().c_str());
  if (use->kind == Use::eHalfPlaced) return true;
  for (const std::string& fileName : remains.dataFiles) {
    bool holds = false;
    if (!HoldsWholeBlock(remains.partial.folder + fileName, remains.identity, &holds, error)) {
      return false;
    }
    if (!holds) continue;
    use->kind = use->hasDescription ? Use::eSavable : Use::eUnclaimed;
    return true;
  }
  return true;
}

std::uint32_t CountLeftovers(const CacheName& name, const io::Report& report) {
  std::vector<std::string> names;
  Error ignored;
  std::uint32_t count = 0;
  if (!ListFolder(name.folder, &names, ignored)) return 0;
  for (const std::string& folderName : names) {
    const auto identity = ParsePartialFolderName(folderName, name.base);
    if (!identity || !IsLeftover(PartialIn(name, folderName), *identity)) continue;
    ++count;
    report.Say("%s: left by a writer that died", folderName.c_str());
  }
  return count;
}

}  // namespace kelsdk::nc
