#include "backends/nc/owners.h"

#include <unordered_set>
#include <vector>

#include "backends/io/folder.h"
#include "backends/nc/data_files.h"

namespace kelsdk::nc {
namespace {

using io::Error;

// Another cache of the folder whose data files may bear names of this one's: "shotFrame3.ncx" is a
// frame of "shot" and the data of "shotFrame3".
struct Neighbour {
  std::string base;
  Identity identity;
};

// The names that a cache's data files could take, as they are taken in the folder.
class Places {
 public:
  bool List(const CacheName& name, Error& error) {
    folder_ = name.folder;
    std::vector<std::string> names;
    if (!ListFolder(folder_, &names, error)) return false;
    for (std::string& fileName : names) {
      if (fileName.ends_with(".xml")) NoteNeighbour(name.base, fileName);
      if (IsDataFileName(fileName, name.base)) taken_.insert(std::move(fileName));
    }
    return true;
  }

  const std::unordered_set<std::string>& Taken() const { return taken_; }

  const Neighbour* OwnerOf(const Identity& identity) const {
    for (const Neighbour& neighbour : neighbours_) {
      if (neighbour.identity == identity) return &neighbour;
    }
    return nullptr;
  }

  bool Identify(const std::string& fileName, Identity* identity, Error& why) const {
    return ReadFileIdentity(folder_ + fileName, identity, why);
  }

  // Refuses a file that must not be written over.
  bool Check(const std::string& fileName, bool isKept, Error& error) const {
    Identity identity = {};
    Error why;
    if (Identify(fileName, &identity, why)) {
      const Neighbour* const owner = OwnerOf(identity);
      return owner == nullptr || error.Set(Error::eRefused, "%.100s belongs to the cache \"%.64s\"",
                                           fileName.c_str(), owner->base.c_str());
    }
    if (why.kind() == Error::eNotFound || (isKept && why.IsAboutContent())) return true;
    if (why.IsAboutContent()) {
      return error.Set(Error::eRefused, "%.100s is in the way and is no NC data file",
                       fileName.c_str());
    }
    return error.Set(why.kind(), "%.100s is in the way: %.128s", fileName.c_str(), why.text());
  }

 private:
  void NoteNeighbour(const std::string& own, const std::string& fileName) {
    std::string base = fileName.substr(0, fileName.size() - 4);
    if (!base.starts_with(own + "Frame") && !own.starts_with(base + "Frame")) return;
    Description description;
    Error ignored;
    if (!ReadDescription(folder_ + fileName, &description, ignored)) return;
    neighbours_.push_back({std::move(base), description.identity});
  }

  std::string folder_;
  std::unordered_set<std::string> taken_;
  std::vector<Neighbour> neighbours_;
};

}  // namespace

bool CheckPlacesAhead(const CacheName& name, const FileLayout& layout, Error& error) {
  Places places;
  if (!places.List(name, error)) return false;
  for (const std::string& fileName : places.Taken()) {
    if (IsDataFileName(fileName, name.base, layout) && !places.Check(fileName, false, error)) {
      return false;
    }
  }
  return true;
}

bool CheckPlaces(const CacheName& name, const Description& description, bool isKept, Error& error) {
  Places places;
  if (!places.List(name, error)) return false;
  return places.Taken().empty() ||
         DataFiles(name.base, description).ForEach([&](const std::string& fileName) {
           return !places.Taken().contains(fileName) || places.Check(fileName, isKept, error);
         });
}

bool ForEachInTheWay(
    const CacheName& name,
    const std::function<void(const std::string& fileName, bool replaceable)>& visit, Error& error) {
  Places places;
  if (!places.List(name, error)) return false;
  for (const std::string& fileName : places.Taken()) {
    Identity identity = {};
    Error why;
    const bool isDataFile = places.Identify(fileName, &identity, why);
    if (!isDataFile || places.OwnerOf(identity) == nullptr) visit(fileName, isDataFile);
  }
  return true;
}

}  // namespace kelsdk::nc
