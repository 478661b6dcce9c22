#include "backends/nc/standing.h"

#include <algorithm>
#include <unordered_set>

#include "backends/io/beside.h"
#include "backends/io/folder.h"
#include "backends/io/replace.h"
#include "backends/nc/data_files.h"
#include "backends/nc/reader.h"

namespace kelsdk::nc {
namespace {

using io::Error;

// Anything else leaves open whether the cache is whole.
bool IsMissingOrDamaged(const Error& error) {
  return error.kind() == Error::eNotFound || error.kind() == Error::eCutShort ||
         error.kind() == Error::eDamaged;
}

bool OpenData(const CacheName& name, const Description& description, Error& why) {
  if (!description.isPerFrame) {
    CacheReader reader;
    return reader.Open(name, why);
  }
  // However many files the description claims, the first that is not there ends it.
  return DataFiles(name.base, description).ForEach([&](const std::string& fileName) {
    Identity identity = {};
    return ReadFileIdentity(name.folder + fileName, &identity, why) &&
           (identity == description.identity ||
            why.Set(Error::eDamaged, "%.100s is of another cache", fileName.c_str()));
  });
}

bool IsDataWhole(const CacheName& name, const Description& description) {
  Error why;
  return OpenData(name, description, why) || !IsMissingOrDamaged(why);
}

std::string DescriptionName(const std::string& base) {
  return base + ".xml";
}

// The files that a base name has in a folder, the description among them.
std::vector<std::string> FilesOf(const std::vector<std::string>& names, const std::string& base) {
  std::vector<std::string> files;
  for (const std::string& name : names) {
    if (name == DescriptionName(base) || IsDataFileName(name, base)) files.push_back(name);
  }
  return files;
}

// The files that would be overwritten or removed, the description last.
std::vector<std::string> FilesToKeep(const CacheName& name, const Standing& standing,
                                     const Description& ours,
                                     const std::vector<std::string>& names) {
  std::unordered_set<std::string> overwritten;
  DataFiles(name.base, ours).ForEach([&](const std::string& fileName) {
    overwritten.insert(fileName);
    return true;
  });
  const auto isOfStanding = [&](const std::string& fileName) {
    Identity identity = {};
    Error why;
    if (!standing.description) return false;
    return ReadFileIdentity(name.folder + fileName, &identity, why)
               ? identity == standing.description->identity
               : !why.IsAboutContent();
  };
  std::vector<std::string> kept = FilesOf(names, name.base);
  std::erase_if(kept, [&](const std::string& fileName) {
    return fileName != DescriptionName(name.base) && !overwritten.contains(fileName) &&
           !isOfStanding(fileName);
  });
  std::partition(kept.begin(), kept.end(), [&](const std::string& fileName) {
    return fileName != DescriptionName(name.base);
  });
  return kept;
}

// Nothing bears the name, or only what an interrupted call has linked.
bool IsFreeOrOurs(const CacheName& name, const std::vector<std::string>& names,
                  const std::string& base) {
  const std::vector<std::string> taken = FilesOf(names, base);
  return std::all_of(taken.begin(), taken.end(), [&](const std::string& fileName) {
    const std::string older = RenamedDataFile(fileName, base, name.base);
    return io::IsSameFile((name.folder + fileName).c_str(), (name.folder + older).c_str());
  });
}

// All of them or none, but for those that an interrupted call has linked.
bool LinkAll(const CacheName& name, const std::vector<std::string>& files, const std::string& base,
             Error& error) {
  std::vector<std::string> made;
  made.reserve(files.size());
  for (const std::string& fileName : files) {
    const std::string from = name.folder + fileName;
    std::string to = name.folder + RenamedDataFile(fileName, name.base, base);
    if (io::Link(from.c_str(), to.c_str(), error)) {
      made.push_back(std::move(to));
    } else if (error.kind() == Error::eExists && io::IsSameFile(from.c_str(), to.c_str())) {
      error.Clear();
    } else {
      Error ignored;
      for (const std::string& path : made) io::Remove(path.c_str(), ignored);
      return false;
    }
  }
  return true;
}

}  // namespace

Standing LookAtStanding(const CacheName& name) {
  Standing standing;
  Description description;
  Error why;
  if (!ReadDescription(name.DescriptionPath(), &description, why)) {
    if (why.kind() == Error::eNotFound) return standing;
    standing.state = IsMissingOrDamaged(why) ? Standing::eDamaged : Standing::eWhole;
    if (!why.IsAboutContent()) standing.unreadable = why;
    return standing;
  }
  standing.state = IsDataWhole(name, description) ? Standing::eWhole : Standing::eDamaged;
  standing.description = std::move(description);
  return standing;
}

bool OpensWhole(const CacheName& name, Identity* identity, Error& why) {
  Description description;
  if (!ReadDescription(name.DescriptionPath(), &description, why)) return false;
  *identity = description.identity;
  return OpenData(name, description, why);
}

bool FindFreeBase(const CacheName& name, const Identity& identity, std::string* base,
                  Error& error) {
  std::vector<std::string> names;
  if (!ListFolder(name.folder, &names, error)) return false;
  for (unsigned int attempt = 1; attempt <= io::kMostNames; ++attempt) {
    *base = io::NumberedName(name.base + io::kRecoveredSuffix, attempt);
    const std::vector<std::string> taken = FilesOf(names, *base);
    const bool isFree = std::all_of(taken.begin(), taken.end(), [&](const std::string& fileName) {
      return fileName != DescriptionName(*base) &&
             CarriesIdentity(name.folder + fileName, identity);
    });
    if (isFree) return true;
  }
  return error.Set(Error::eExists, "every name from %.100s.xml on is taken", base->c_str());
}

bool KeepOlder(const CacheName& name, const Standing& standing, const Description& ours,
               std::string* keptAs, Error& error) {
  std::vector<std::string> names;
  if (!ListFolder(name.folder, &names, error)) return false;
  const std::vector<std::string> files = FilesToKeep(name, standing, ours, names);
  keptAs->clear();
  if (files.empty()) return true;
  unsigned int attempt = 1;
  do {
    *keptAs = io::NumberedName(name.base + io::kOlderSuffix, attempt);
  } while (!IsFreeOrOurs(name, names, *keptAs) && ++attempt <= io::kMostNames);
  if (!LinkAll(name, files, *keptAs, error)) {
    const Error why = error;
    return error.Set(why.kind(), "the older cache cannot be kept as %.100s.xml: %.100s",
                     keptAs->c_str(), why.text());
  }
  return io::SyncFolderOf(name.DescriptionPath().c_str(), error);
}

}  // namespace kelsdk::nc
