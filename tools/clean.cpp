#include "tools/clean.h"

#include <algorithm>
#include <ctime>
#include <filesystem>

#include "tools/formats.h"
#include "tools/inputs.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

namespace fs = std::filesystem;
using kelsdk::CacheLeftover;

struct Found {
  const FormatRow* row;
  std::string name;
  CacheLeftover::EState state;
  Remnant remnant;
};

const char* KindText(CacheLeftover::EKind kind) {
  switch (kind) {
    case CacheLeftover::ePartialFile: return "partial file";
    case CacheLeftover::ePartialFolder: return "partial folder";
    case CacheLeftover::eOlderCache: return "older cache";
  }
  return "";
}

void NoteProblem(const std::string& folder, const std::string& why, std::vector<Found>* found) {
  Found one = {nullptr, "", CacheLeftover::eInUse, {}};
  one.remnant = {folder, "folder", 0, 0, Remnant::eFailedToGo, why};
  found->push_back(one);
}

std::vector<Found> FindIn(const std::string& folder) {
  std::vector<Found> found;
  for (const FormatRow* row : AllRows()) {
    if (row->listLeftovers == nullptr) continue;
    const auto note = [&](const CacheLeftover& leftover) {
      const long long age =
          std::max(0LL, static_cast<long long>(std::time(nullptr)) - leftover.since);
      Found one = {row, leftover.name, leftover.state, {}};
      one.remnant = {(fs::path(folder) / leftover.name).string(),
                     KindText(leftover.kind),
                     leftover.bytes,
                     static_cast<std::uint64_t>(age),
                     Remnant::eKept,
                     leftover.why};
      found.push_back(one);
    };
    std::string why;
    if (row->listLeftovers(folder, note, [&](const std::string& line) { why = line; })) continue;
    NoteProblem(folder, why, &found);
    break;
  }
  return found;
}

void Treat(const std::string& folder, const CleanOptions& options, Found* found) {
  Remnant& remnant = found->remnant;
  const bool isAsked = found->state == CacheLeftover::eUseless ||
                       (options.force && found->state == CacheLeftover::eOfUse);
  if (found->row == nullptr || !isAsked) return;
  if (options.olderThan && remnant.age < *options.olderThan) {
    remnant.why = "is younger";
    return;
  }
  if (options.dryRun) {
    remnant.outcome = Remnant::eWouldBeRemoved;
    return;
  }
  const auto say = [&](const std::string& line) { remnant.why = line; };
  remnant.outcome = found->row->removeLeftover(folder, found->name, options.force, say)
                        ? Remnant::eRemoved
                        : Remnant::eFailedToGo;
}

}  // namespace

void Clean(const std::string& folder, const CleanOptions& options,
           const std::function<void(const Remnant&)>& told) {
  std::error_code why;
  if (!fs::is_directory(folder, why)) throw Failed(folder, why ? why.message() : "is no folder");
  for (Found& one : FindIn(folder)) {
    Treat(folder, options, &one);
    told(one.remnant);
  }
  if (!options.recursive) return;
  std::vector<std::string> inside;
  for (fs::directory_iterator entry(folder, why), end; !why && entry != end; entry.increment(why)) {
    if (IsFolderToLookIn(*entry)) inside.push_back(entry->path().string());
  }
  std::sort(inside.begin(), inside.end());
  for (const std::string& each : inside) Clean(each, options, told);
}

}  // namespace kelcache
