#include "tools/inputs.h"

#include <algorithm>
#include <filesystem>

#include "tools/formats.h"
#include "tools/numbers.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

namespace fs = std::filesystem;

class Folder {
 public:
  Folder(const std::string& path, const InputOptions& options)
      : top_(path), options_(options), except_(PlaceOf(options.except)) {}

  std::vector<Input> List() {
    Walk(top_);
    std::sort(found_.begin(), found_.end(),
              [](const Input& a, const Input& b) { return a.name < b.name; });
    return std::move(found_);
  }

 private:
  static fs::path PlaceOf(const fs::path& path) {
    std::error_code unknown;
    return path.empty() ? path : fs::weakly_canonical(path, unknown);
  }

  void Walk(const fs::path& folder) {
    std::error_code why;
    for (fs::directory_iterator entry(folder, why), end; !why && entry != end;
         entry.increment(why)) {
      std::error_code unknown;
      if (entry->is_directory(unknown)) {
        if (options_.recursive && IsFolderToLookIn(*entry) && PlaceOf(entry->path()) != except_) {
          Walk(entry->path());
        }
      } else if (IsCacheName(entry->path().string())) {
        Add(entry->path(), "");
      }
    }
    if (why) Add(folder, why.message());
  }

  void Add(const fs::path& path, const std::string& problem) {
    found_.push_back({path.string(), path.lexically_relative(top_).string(), true, problem});
  }

  const fs::path top_;
  const InputOptions& options_;
  const fs::path except_;
  std::vector<Input> found_;
};

}  // namespace

bool IsFolderToLookIn(const fs::directory_entry& entry) {
  std::error_code unknown;
  return entry.is_directory(unknown) && !entry.is_symlink(unknown) &&
         !IsWritersFolder(entry.path().filename().string());
}

bool Shard::Holds(const std::string& name) const {
  // FNV-1a: the same on every machine.
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char byte : name) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  // Names that differ in a digit differ in a few bits until these are spread.
  hash = (hash ^ hash >> 30) * 0xbf58476d1ce4e5b9;
  hash = (hash ^ hash >> 27) * 0x94d049bb133111eb;
  hash ^= hash >> 31;
  return hash % count == index - 1;
}

std::optional<Shard> ParseShard(const std::string& text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) return {};
  const auto index = ParseWholeNumber(text.substr(0, slash));
  const auto count = ParseWholeNumber(text.substr(slash + 1));
  if (!index || !count || *index < 1 || *index > *count) return {};
  return Shard{*index, *count};
}

std::vector<Input> FindInputs(const std::vector<std::string>& given, const InputOptions& options) {
  std::vector<Input> inputs;
  for (const std::string& path : given) {
    std::error_code unknown;
    if (!fs::is_directory(path, unknown)) {
      inputs.push_back({path, fs::path(path).filename().string(), false, ""});
      continue;
    }
    std::vector<Input> found = Folder(path, options).List();
    if (found.empty()) {
      throw Failed(path, options.recursive
                             ? "holds no caches"
                             : "holds no caches; --recursive looks in its folders, too");
    }
    std::move(found.begin(), found.end(), std::back_inserter(inputs));
  }
  std::erase_if(inputs, [&](const Input& input) { return !options.shard.Holds(input.name); });
  return inputs;
}

}  // namespace kelcache
