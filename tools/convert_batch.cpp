#include "tools/convert_batch.h"

#include <filesystem>
#include <map>

#include "tools/formats.h"
#include "tools/readable.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

namespace fs = std::filesystem;

std::string TargetOf(const Input& input, const BatchOptions& options) {
  fs::path target =
      options.folder.empty() ? fs::path(input.path) : fs::path(options.folder) / input.name;
  target.replace_extension(options.extension);
  return target.string();
}

/// One name for each file, whatever links lead to its folder, which need not exist yet.
class Places {
 public:
  std::string Of(const std::string& file) {
    const fs::path path(file);
    const auto [known, isNew] = folders_.try_emplace(path.parent_path().string());
    std::error_code unknown;
    if (isNew) known->second = fs::weakly_canonical(fs::absolute(path.parent_path()), unknown);
    return known->second / path.filename();
  }

 private:
  std::map<std::string, fs::path> folders_;
};

bool IsWhole(const std::string& file) {
  ExpectReadable(file);
  try {
    CacheFile cache(file, FormatOf(file, ""));
    cache.OpenForRead();
    return Summarise(cache).complete;
  } catch (const ToolError&) {
    return false;  // the system gives the file: it is damaged
  }
}

fs::file_time_type TimeOf(const std::string& file) {
  std::error_code why;
  const auto time = fs::last_write_time(file, why);
  if (why) throw Failed(file, why.message());
  return time;
}

}  // namespace

std::vector<PlannedCopy> PlanCopies(const std::vector<Input>& inputs, const BatchOptions& options) {
  std::vector<PlannedCopy> copies;
  std::map<std::string, std::size_t> first;  // copy by target
  Places places;
  for (const Input& input : inputs) {
    copies.push_back({input, TargetOf(input, options)});
    if (!input.problem.empty()) continue;
    const auto [other, isNew] = first.emplace(places.Of(copies.back().target), copies.size() - 1);
    if (isNew) continue;
    Input& one = copies[other->second].input;
    const std::string problem =
        copies.back().target + " is the target of both " + one.path + " and " + input.path;
    copies.back().input.problem = problem;
    if (one.problem.empty()) one.problem = problem;
  }
  return copies;
}

ETargetState LookAtTarget(const PlannedCopy& copy, const BatchOptions& options) {
  std::error_code why;
  const bool exists = fs::exists(copy.target, why);
  if (why) throw Failed(copy.target, why.message());
  if (!exists) return ETargetState::eFree;
  if (copy.input.isListed && fs::equivalent(copy.input.path, copy.target, why)) {
    return ETargetState::eIsSource;
  }
  if (options.skipExisting) {
    const bool isNewer = TimeOf(copy.target) > TimeOf(copy.input.path);
    return isNewer && IsWhole(copy.target) ? ETargetState::eUpToDate : ETargetState::eReplaced;
  }
  return options.force ? ETargetState::eReplaced : ETargetState::eInTheWay;
}

void MakeCopy(const PlannedCopy& copy, const std::function<void()>& convert) {
  const fs::file_time_type before = TimeOf(copy.input.path);
  const fs::path folder = fs::path(copy.target).parent_path();
  std::error_code why;
  if (!folder.empty()) fs::create_directories(folder, why);
  if (why) throw Failed(folder.string(), why.message());
  convert();
  if (TimeOf(copy.input.path) == before) return;
  fs::last_write_time(copy.target, before, why);
  throw Failed(copy.input.path, "changed while it was converted; convert it again");
}

}  // namespace kelcache
