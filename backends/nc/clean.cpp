#include "backends/nc/clean.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>

#include "backends/io/beside.h"
#include "backends/io/folder.h"
#include "backends/io/replace.h"
#include "backends/nc/data_files.h"
#include "backends/nc/owners.h"
#include "backends/nc/remains.h"
#include "backends/nc/standing.h"

namespace kelsdk::nc {
namespace {

using io::Error;
using io::Leftover;

/// The files of one leftover, without the folder, and what they add up to.
struct Files {
  std::string description;  // "" for none
  std::vector<std::string> data;
  std::string other;  // what no writer has put there, "" for nothing

  std::vector<std::string> All() const {
    std::vector<std::string> all = data;
    // Last: by it and its lock an interrupted removal is taken up.
    if (!description.empty()) all.push_back(description);
    return all;
  }
};

void AddFile(const std::string& path, Leftover* leftover) {
  io::Entry entry;
  Error ignored;
  if (!io::LookAt(path, &entry, ignored)) return;
  leftover->bytes += entry.size;
}

bool RemoveAll(const std::string& folder, const std::vector<std::string>& names, Error& error) {
  return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
    const std::string path = folder + name;
    if (io::Remove(path.c_str(), error)) return true;
    if (error.kind() != Error::eNotFound) return false;
    error.Clear();
    return true;
  });
}

// The folder in which a writer gathers its files.
class PartialFolder {
 public:
  PartialFolder(const std::string& folder, const std::string& name, const std::string& base)
      : name_{folder, base}, folderName_(name), path_(folder + name + "/") {
    leftover_.name = name;
    leftover_.kind = CacheLeftover::ePartialFolder;
  }

  // False for what is no folder, or is gone.
  bool Look() {
    Error error;
    files_ = Files();
    leftover_.bytes = 0;
    if (!LookAtFiles(error)) return false;
    if (error) {
      leftover_.CannotBeTold(error);
    } else {
      Judge();
    }
    return true;
  }

  const Leftover& leftover() const { return leftover_; }

  bool Remove(bool force, Error& error) {
    io::OutputFile lock;
    if (!io::ExpectRemovable(leftover_, force, error)) return false;
    if (!files_.description.empty()) {
      if (!io::LockForRemoval((path_ + files_.description).c_str(), &lock, error)) return false;
      // What was looked at before may have changed until then; the lock that is asked is our own.
      isLockOurs_ = true;
      if (!Look()) return error.Set(Error::eNotFound, "was removed meanwhile");
      if (!io::ExpectRemovable(leftover_, force, error)) return false;
    } else if (files_.data.empty() && FinishPublished(name_, folderName_)) {
      return true;
    }
    // A file server keeps what is open under another name, and the folder with it.
    return RemoveAll(path_, files_.All(), error) && lock.Close(error) &&
           (::rmdir(path_.c_str()) == 0 || error.SetSystem(errno, "removing the folder"));
  }

 private:
  bool LookAtFiles(Error& error) {
    io::Entry own;
    std::vector<std::string> names;
    if (!io::LookAt(name_.folder + folderName_, &own, error) || !own.isFolder) return false;
    leftover_.since = own.written;
    if (!io::ListFolder(path_, &names, error)) return true;
    for (const std::string& name : names) {
      io::Entry entry;
      if (!io::LookAt(path_ + name, &entry, error)) return true;
      leftover_.bytes += entry.isFile ? entry.size : 0;
      leftover_.since = std::max(leftover_.since, entry.written);
      if (entry.isFile && name == name_.base + ".xml") {
        files_.description = name;
      } else if (entry.isFile && IsDataFileName(name, name_.base)) {
        files_.data.push_back(name);
      } else {
        files_.other = name;
      }
    }
    return true;
  }

  // The lock is asked for last, and not at all where a writer may be about to take its own.
  void Judge() {
    Error error;
    Use use;
    const std::string& description = files_.description;
    if (!files_.other.empty()) {
      leftover_.Is(CacheLeftover::eInUse, "holds " + files_.other + ", which no writer made");
    } else if (!FindUse(name_, folderName_, &use, error)) {
      leftover_.CannotBeTold(error);
    } else if (use.kind == Use::eNone && (files_.data.empty() || description.empty()) &&
               !io::IsSettled(leftover_.since)) {
      leftover_.Is(CacheLeftover::eInUse, io::kNotSettled);
    } else if (!isLockOurs_ && !description.empty() &&
               io::OutputFile::IsHeld((path_ + description).c_str())) {
      leftover_.Is(CacheLeftover::eInUse, io::kHeldByWriter);
    } else {
      JudgeUse(use.kind);
    }
  }

  void JudgeUse(Use::EKind use) {
    switch (use) {
      case Use::eNone: leftover_.Is(CacheLeftover::eUseless, "holds no whole time block"); break;
      case Use::eSavable: leftover_.Is(CacheLeftover::eOfUse, io::kSavable); break;
      case Use::eUnclaimed:
        leftover_.Is(CacheLeftover::eOfUse,
                     "holds whole time blocks, but no description with which recover saves them");
        break;
      case Use::eHalfPlaced:
        leftover_.Is(CacheLeftover::eInUse,
                     "a part of it is in place already; recover goes on with that");
        break;
    }
  }

  const CacheName name_;
  const std::string folderName_;
  const std::string path_;
  Files files_;
  Leftover leftover_;
  bool isLockOurs_ = false;
};

// A cache that a recovery kept when it put another in its place.
class OlderCache {
 public:
  OlderCache(const std::string& folder, const std::string& base, const std::string& ownBase)
      : standing_{folder, base}, own_{folder, ownBase} {
    leftover_.kind = CacheLeftover::eOlderCache;
  }

  void Look(const std::vector<std::string>& folderNames) {
    Error error;
    if (!FindFiles(error)) return leftover_.CannotBeTold(error);
    AddUp();
    if (HasRecoveryUnderWay(folderNames)) {
      leftover_.Is(CacheLeftover::eInUse, "a writer or a recovery of the cache is under way");
    } else {
      Judge();
    }
  }

  // Nothing but what bears names of its files without being one.
  bool IsNone() const { return files_.All().empty(); }
  const Leftover& leftover() const { return leftover_; }

  bool Remove(bool force, Error& error) const {
    return io::ExpectRemovable(leftover_, force, error) &&
           RemoveAll(own_.folder, files_.All(), error) &&
           io::SyncFolderOf(own_.DescriptionPath().c_str(), error);
  }

 private:
  // Of data files of its names those of other caches are left out, and once it is known, those of
  // any other identity.
  bool FindFiles(Error& error) {
    Description description;
    Error why;
    io::Entry entry;
    if (io::LookAt(own_.DescriptionPath(), &entry, why)) {
      if (!entry.isFile) return error.Set(Error::eNotAFile, "its description is no file");
      files_.description = own_.base + ".xml";
      leftover_.since = entry.changed;
      if (ReadDescription(own_.DescriptionPath(), &description, why)) {
        identity_ = description.identity;
      } else if (!why.IsAboutContent()) {
        error = why;
        return false;
      }
    }
    return ForEachInTheWay(
        own_,
        [&](const std::string& fileName, bool isDataFile) {
          io::Entry file;
          Error ignored;
          const bool isOwn =
              identity_ ? CarriesIdentity(own_.folder + fileName, *identity_) : isDataFile;
          if (isOwn && io::LookAt(own_.folder + fileName, &file, ignored) && file.isFile) {
            files_.data.push_back(fileName);
          }
        },
        error);
  }

  void AddUp() {
    const std::vector<std::string> all = files_.All();
    if (all.empty()) return;
    leftover_.name = all.back();
    for (const std::string& name : all) {
      AddFile(own_.folder + name, &leftover_);
      io::Entry entry;
      Error ignored;
      if (files_.description.empty() && io::LookAt(own_.folder + name, &entry, ignored)) {
        leftover_.since = std::max(leftover_.since, entry.changed);
      }
    }
  }

  bool HasRecoveryUnderWay(const std::vector<std::string>& folderNames) const {
    return std::any_of(folderNames.begin(), folderNames.end(), [&](const std::string& name) {
      const std::string description = own_.folder + name + "/" + standing_.base + ".xml";
      return ParsePartialFolderName(name, standing_.base) && io::IsTaken(description.c_str()) &&
             io::OutputFile::IsHeld(description.c_str());
    });
  }

  void Judge() {
    Identity identity = {};
    Error why;
    const std::string description = standing_.base + ".xml";
    if (!OpensWhole(standing_, &identity, why)) {
      leftover_.Is(CacheLeftover::eOfUse,
                   "may be the only copy: " + description + ": " + why.text());
    } else if (!identity_) {
      leftover_.Is(CacheLeftover::eOfUse, "has no description that can be read");
    } else if (identity == *identity_) {
      leftover_.Is(CacheLeftover::eOfUse, "may be the only copy: nothing took its place yet");
    } else {
      leftover_.Is(CacheLeftover::eUseless, io::kReplaced);
    }
  }

  const CacheName standing_;
  const CacheName own_;
  std::optional<Identity> identity_;
  Files files_;
  Leftover leftover_;
};

// Visits what is left in a folder.
class FolderSearch {
 public:
  explicit FolderSearch(const std::string& folder) : folder_(folder) {}

  bool List(Error& error) {
    if (!io::ListFolder(folder_, &names_, error)) return false;
    std::sort(names_.begin(), names_.end());
    for (const std::string& name : names_) NoteOlder(name);
    return true;
  }

  template <typename Visit>
  void ForEach(Visit&& visit) const {
    for (const std::string& name : names_) {
      if (BaseOfPartialFolder(name)) VisitPartial(name, visit);
    }
    for (const auto& [ownBase, base] : older_) VisitOlder(ownBase, base, visit);
  }

  // The one of a name, if it is there.
  template <typename Visit>
  void Find(const std::string& leftoverName, Visit&& visit) const {
    std::size_t length = 0;
    std::size_t ownLength = 0;
    if (!std::binary_search(names_.begin(), names_.end(), leftoverName)) return;
    if (BaseOfPartialFolder(leftoverName)) {
      VisitPartial(leftoverName, visit);
    } else if (io::ParseOlderName(leftoverName, &length, &ownLength)) {
      const auto older = older_.find(leftoverName.substr(0, ownLength));
      if (older != older_.end()) VisitOlder(older->first, older->second, visit);
    }
  }

 private:
  template <typename Visit>
  void VisitPartial(const std::string& name, Visit&& visit) const {
    PartialFolder partial(folder_, name, *BaseOfPartialFolder(name));
    if (partial.Look()) visit(partial);
  }

  template <typename Visit>
  void VisitOlder(const std::string& ownBase, const std::string& base, Visit&& visit) const {
    OlderCache older(folder_, base, ownBase);
    older.Look(names_);
    if (!older.IsNone()) visit(older);
  }

  void NoteOlder(const std::string& name) {
    std::size_t length = 0;
    std::size_t ownLength = 0;
    if (!io::ParseOlderName(name, &length, &ownLength)) return;
    const std::string ownBase = name.substr(0, ownLength);
    if (name == ownBase + ".xml" || IsDataFileName(name, ownBase)) {
      older_[ownBase] = name.substr(0, length);
    }
  }

  const std::string folder_;
  std::vector<std::string> names_;
  std::map<std::string, std::string> older_;  // own base names, those of what took their places
};

}  // namespace

bool FindLeftovers(const std::string& folder, std::vector<Leftover>* leftovers, Error& error) {
  FolderSearch search(folder);
  if (!search.List(error)) return false;
  search.ForEach([&](const auto& one) { leftovers->push_back(one.leftover()); });
  return true;
}

bool RemoveLeftover(const std::string& folder, const std::string& leftoverName, bool force,
                    Error& error) {
  FolderSearch search(folder);
  if (!search.List(error)) return false;
  bool isFound = false;
  bool isRemoved = false;
  search.Find(leftoverName, [&](auto& one) {
    isFound = true;
    isRemoved = one.Remove(force, error);
  });
  return isFound ? isRemoved : error.Set(Error::eNotFound, "is not there any more");
}

}  // namespace kelsdk::nc
