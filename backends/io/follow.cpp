#include "backends/io/follow.h"

#include "backends/io/leftover.h"

namespace kelsdk::io {
namespace {

bool IsUnderWay(const CacheProgress& progress) {
  return progress.state == CacheProgress::eAtWork || progress.state == CacheProgress::eBeingPlaced;
}

// Where no lock tells, one that has not written for long is not waited for.
bool IsAtWork(const CacheProgress& progress) {
  return IsUnderWay(progress) && (progress.isLifeKnown || !IsSettled(progress.written));
}

}  // namespace

bool FollowNewest(const std::vector<std::unique_ptr<Follower>>& followers,
                  CacheProgressFunction told, const Report& report) {
  Follower* newest = nullptr;
  CacheProgress progress;
  unsigned int atWork = 0;
  for (const std::unique_ptr<Follower>& follower : followers) {
    CacheProgress first;
    Error error;
    if (!follower->Look(&first, error)) {
      report.Say("%s", error.text());
    } else if (IsAtWork(first)) {
      ++atWork;
      if (newest != nullptr && first.begun <= progress.begun) continue;
      newest = follower.get();
      progress = first;
    }
  }
  if (newest == nullptr) return false;
  if (atWork > 1) {
    report.Say("%u writers are at work on it; this is the one that began last", atWork);
  }
  Error error;
  while (told(report.context, progress) && IsUnderWay(progress)) {
    error.Clear();
    progress.problem = newest->Look(&progress, error) ? "" : error.text();
  }
  return true;
}

}  // namespace kelsdk::io
