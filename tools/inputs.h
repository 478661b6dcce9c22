#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kelcache {

/// One of N parts of all inputs. Which one a cache belongs to follows from its name alone, so the
/// parts together are the whole whatever else comes and goes meanwhile.
struct Shard {
  unsigned int index = 1;  ///< from 1
  unsigned int count = 1;

  bool Holds(const std::string& name) const;
};

/// "2/8"; empty for what is none.
std::optional<Shard> ParseShard(const std::string& text);

struct InputOptions {
  std::string asName;
  bool recursive = false;  ///< look in the folders of folders
  Shard shard;
  std::string except;  ///< a folder that is not looked in; "" for none
};

/// A cache, or what stands where one was to be.
struct Input {
  std::string path;
  std::string name;       ///< under the folder that was given, or the file's own
  bool isListed = false;  ///< it was found in a folder
  std::string problem;    ///< why it cannot be looked at; "" for none
};

/// The files as they are given, and of folders the caches in them, by name. A file of a folder is a
/// cache when its extension says so; an .xml that is none is passed over. Links to folders are not
/// followed. Throws eFailed for a folder without any cache.
std::vector<Input> FindInputs(const std::vector<std::string>& given, const InputOptions& options);

/// Whether --recursive goes on in what a folder holds: not through links, nor into what a writer
/// gathers.
bool IsFolderToLookIn(const std::filesystem::directory_entry& entry);

/// Several are told of in a line each.
inline bool AreSeveral(const std::vector<Input>& inputs) {
  return inputs.size() != 1 || inputs[0].isListed;
}

}  // namespace kelcache
