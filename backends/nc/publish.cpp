#include "backends/nc/publish.h"

#include <unistd.h>

#include <unordered_set>

#include "backends/io/folder.h"
#include "backends/io/replace.h"
#include "backends/nc/data_files.h"
#include "backends/nc/owners.h"

namespace kelsdk::nc {
namespace {

using io::Error;

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
  return DataFiles(partial.name.base, description).ForEach([&](const std::string& fileName) {
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
  if (!FindReplaceTarget(partial->target.DescriptionPath().c_str(), &target, error)) return false;
  io::OutputFile& file = partial->description;
  if (target.exists && !file.SetMode(target.mode, error)) return false;
  return file.Truncate(0, error) && file.WriteAt(0, text.data(), text.size(), error) &&
         file.Sync(error);
}

// Renames one data file into place, or finds it there because an interrupted publication has done
// so, or finds it where one that was begun under the cache's own name has put it.
bool PlaceDataFile(const Partial& partial, const Identity& identity, const std::string& fileName,
                   Error& error) {
  const std::string from = partial.folder + fileName;
  const std::string own = partial.name.folder + fileName;
  const std::string to =
      partial.target.folder + RenamedDataFile(fileName, partial.name.base, partial.target.base);
  if (io::Rename(from.c_str(), to.c_str(), error)) return true;
  if (error.kind() != Error::eNotFound) return false;
  const bool isPlaced = CarriesIdentity(to, identity);
  if (!isPlaced && !CarriesIdentity(own, identity)) return false;
  error.Clear();
  return isPlaced || io::Rename(own.c_str(), to.c_str(), error);
}

// Removes data files of the cache that stood here before.
void RemoveReplaced(const CacheName& name, const Description& description) {
  std::vector<std::string> names;
  Error ignored;
  if (!ListFolder(name.folder, &names, ignored)) return;
  std::unordered_set<std::string> own;
  DataFiles(name.base, description).ForEach([&own](const std::string& fileName) {
    own.insert(fileName);
    return true;
  });
  for (const std::string& fileName : names) {
    if (!IsDataFileName(fileName, name.base) || own.contains(fileName)) continue;
    const std::string path = name.folder + fileName;
    if (CarriesIdentity(path, description.replaced)) io::Remove(path.c_str(), ignored);
  }
}

}  // namespace

bool FinishAndPublish(CacheWriter* writer, Error& error) {
  Partial partial;
  Description description;
  return writer->Finish(&partial, &description, error) &&
         Publish(&partial, &description, false, error);
}

bool Publish(Partial* partial, Description* description, bool isOlderKept, Error& error) {
  if (!SyncDataFiles(*partial, *description, error)) return false;
  description->replaced = StandingIdentity(partial->target);
  if (!CheckPlaces(partial->target, *description, isOlderKept, error)) return false;
  return WriteDescription(partial, *description, error) &&
         io::SyncFolderOf(partial->folder.c_str(), error) &&
         CompletePublication(partial, *description, error);
}

bool CompletePublication(Partial* partial, const Description& description, Error& error) {
  const bool placed =
      DataFiles(partial->name.base, description).ForEach([&](const std::string& fileName) {
        return PlaceDataFile(*partial, description.identity, fileName, error);
      });
  const std::string target = partial->target.DescriptionPath();
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
  if (replaces) RemoveReplaced(partial.target, description);
  // Last: as long as the folder is there, recover comes back to what is left to do.
  ::rmdir(partial.folder.c_str());
}

}  // namespace kelsdk::nc
