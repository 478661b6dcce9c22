#include "backends/nc/publish.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <unordered_set>

#include "backends/io/input_file.h"
#include "backends/io/replace.h"
#include "backends/nc/records.h"
#include "backends/nc/scan.h"

namespace kelsdk::nc {
namespace {

using io::Error;

constexpr unsigned int kFolderMode = 0777;       // before the process's mask
constexpr unsigned int kDescriptionMode = 0666;  // likewise

// One call for each of 100,000 files takes minutes.
constexpr std::uint32_t kMostFilesSyncedSingly = 64;

bool SyncFile(const std::string& path, Error& error) {
  io::OutputFile file;
  return file.OpenExisting(path.c_str(), error) && file.Sync(error) && file.Close(error);
}

bool SyncDataFiles(const Partial& partial, const Description& description, Error& error) {
  if (description.isPerFrame && description.times.Count() > kMostFilesSyncedSingly) {
    return io::SyncFileSystemOf(partial.folder.c_str(), error);
  }
  return ForEachDataFile(description, partial.name.base, [&](const std::string& fileName) {
    return SyncFile(partial.folder + fileName, error);
  });
}

// The identity of the cache that stands at the target; none when that one cannot be read.
Identity StandingIdentity(const CacheName& name) {
  Description standing;
  Error ignored;
  return ReadDescription(name.DescriptionPath(), &standing, ignored) ? standing.identity
                                                                     : Identity{};
}

bool WriteDescription(Partial* partial, const Description& description, Error& error) {
  const std::string text = FormatDescription(description);
  io::ReplaceTarget target;
  if (!FindReplaceTarget(partial->name.DescriptionPath().c_str(), &target, error)) return false;
  io::OutputFile& file = partial->description;
  if (target.exists && !file.SetMode(target.mode, error)) return false;
  return file.Truncate(0, error) && file.WriteAt(0, text.data(), text.size(), error) &&
         file.Sync(error);
}

// Renames one data file into place, or finds it there because an interrupted publication has done
// so.
bool PlaceDataFile(const Partial& partial, const Identity& identity, const std::string& fileName,
                   Error& error) {
  const std::string from = partial.folder + fileName;
  const std::string to = partial.name.folder + fileName;
  if (io::Rename(from.c_str(), to.c_str(), error)) return true;
  Identity standing = {};
  if (error.kind() != Error::eNotFound || !ReadFileIdentity(to, &standing) ||
      standing != identity) {
    return false;
  }
  error.Clear();
  return true;
}

// The caches of the folder whose data files may bear names of this one's: "shotFrame3.ncx" is a
// frame of "shot" and the data of "shotFrame3".
bool FindCachesOfAlikeName(const CacheName& name, std::vector<std::string>* alike, Error& error) {
  std::vector<std::string> names;
  if (!ListFolder(name.folder, &names, error)) return false;
  for (const std::string& fileName : names) {
    if (!fileName.ends_with(".xml")) continue;
    const std::string base = fileName.substr(0, fileName.size() - 4);
    if (base.starts_with(name.base + "Frame") || name.base.starts_with(base + "Frame")) {
      alike->push_back(base);
    }
  }
  return true;
}

// Refuses to write over a data file that another cache claims. What no cache claims is overwritten.
bool CheckOwners(const CacheName& name, const Description& description, Error& error) {
  std::vector<std::string> alike;
  if (!FindCachesOfAlikeName(name, &alike, error)) return false;
  for (const std::string& owner : alike) {
    const Identity claimed = StandingIdentity({name.folder, owner});
    if (claimed == Identity{}) continue;
    const bool free = ForEachDataFile(description, name.base, [&](const std::string& fileName) {
      Identity identity = {};
      return !ReadFileIdentity(name.folder + fileName, &identity) || identity != claimed ||
             error.Set(Error::eRefused, "%.100s belongs to the cache \"%.64s\"", fileName.c_str(),
                       owner.c_str());
    });
    if (!free) return false;
  }
  return true;
}

// Removes data files of the cache that stood here before.
void RemoveReplaced(const CacheName& name, const Description& description) {
  std::vector<std::string> names;
  Error ignored;
  if (!ListFolder(name.folder, &names, ignored)) return;
  std::unordered_set<std::string> own;
  ForEachDataFile(description, name.base, [&own](const std::string& fileName) {
    own.insert(fileName);
    return true;
  });
  for (const std::string& fileName : names) {
    if (!IsDataFileName(fileName, name.base) || own.contains(fileName)) continue;
    const std::string path = name.folder + fileName;
    Identity identity = {};
    if (ReadFileIdentity(path, &identity) && identity == description.replaced) {
      io::Remove(path.c_str(), ignored);
    }
  }
}

}  // namespace

bool CreatePartial(const CacheName& name, const Identity& identity, Partial* partial,
                   Error& error) {
  partial->name = name;
  partial->folder = name.folder + PartialFolderName(name.base, identity) + "/";
  io::ReplaceTarget target;
  if (!FindReplaceTarget(name.DescriptionPath().c_str(), &target, error)) return false;
  if (::mkdir(partial->folder.c_str(), kFolderMode) != 0) {
    return error.SetSystem(errno, "cannot make a folder beside the cache");
  }
  if (partial->description.Create(partial->DescriptionPath().c_str(), kDescriptionMode, error)) {
    return true;
  }
  ::rmdir(partial->folder.c_str());
  return false;
}

void DiscardPartial(Partial* partial) {
  std::vector<std::string> names;
  Error ignored;
  if (ListFolder(partial->folder, &names, ignored)) {
    for (const std::string& name : names) ::unlink((partial->folder + name).c_str());
  }
  ::rmdir(partial->folder.c_str());
  partial->description.Close(ignored);
}

bool Publish(Partial* partial, Description* description, Error& error) {
  if (!SyncDataFiles(*partial, *description, error)) return false;
  description->replaced = StandingIdentity(partial->name);
  if (!CheckOwners(partial->name, *description, error)) return false;
  return WriteDescription(partial, *description, error) &&
         io::SyncFolderOf(partial->folder.c_str(), error) &&
         CompletePublication(partial, *description, error);
}

bool CompletePublication(Partial* partial, const Description& description, Error& error) {
  const bool placed =
      ForEachDataFile(description, partial->name.base, [&](const std::string& fileName) {
        return PlaceDataFile(*partial, description.identity, fileName, error);
      });
  const std::string target = partial->name.DescriptionPath();
  // The names of the data are durable before the description's is made.
  if (!placed || !io::SyncFolderOf(target.c_str(), error) ||
      !io::Rename(partial->DescriptionPath().c_str(), target.c_str(), error) ||
      !io::SyncFolderOf(target.c_str(), error)) {
    return false;
  }
  FinishPublication(*partial, description);
  return partial->description.Close(error);
}

void FinishPublication(const Partial& partial, const Description& description) {
  const bool replaces =
      description.replaced != Identity{} && description.replaced != description.identity;
  if (replaces) RemoveReplaced(partial.name, description);
  // Last: as long as the folder is there, recover comes back to what is left to do.
  ::rmdir(partial.folder.c_str());
}

bool ListFolder(const std::string& folder, std::vector<std::string>* names, Error& error) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), ::closedir);
  if (entries == nullptr) return error.SetSystem(errno, "cannot list the folder");
  while (const dirent* entry = ::readdir(entries.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names->push_back(name);
  }
  return true;
}

bool ReadFileIdentity(const std::string& path, Identity* identity) {
  io::InputFile file;
  FileHeader header;
  Error ignored;
  if (!file.Open(path.c_str(), ignored)) return false;
  if (!RecordScanner(file, file.Size()).ReadFileHeader(&header, ignored)) return false;
  *identity = header.identity;
  return true;
}

}  // namespace kelsdk::nc
