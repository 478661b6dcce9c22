#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backends/CacheProgress.h"
#include "backends/io/error.h"
#include "backends/io/output_file.h"
#include "backends/io/report.h"

namespace kelsdk::io {

/// Looks again and again at what one writer gathers. Nothing is kept open from look to look: a file
/// server would hold on to what the writer removes.
class Follower {
 public:
  Follower() = default;
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;
  virtual ~Follower() = default;

  /// False when a failure left things as they were at the last look. May throw std::bad_alloc.
  virtual bool Look(CacheProgress* progress, Error& error) = 0;
};

/// Follows the one of the writers still at work that began last, and tells of its looks until the
/// cache is no longer under way or no more are wanted. False when none is at work. May throw
/// std::bad_alloc.
bool FollowNewest(const std::vector<std::unique_ptr<Follower>>& followers,
                  CacheProgressFunction told, const Report& report);

/// What the lock of a file that holds something, so that its writer has taken that lock if it ever
/// will, tells of the writer. `isPublished` is asked only once nobody holds the file, for then the
/// writer has either died or just finished.
template <typename IsPublished>
void JudgeByLock(const std::string& path, CacheProgress* progress, IsPublished&& isPublished) {
  const OutputFile::EHolder holder = OutputFile::HolderOf(path.c_str());
  progress->isLifeKnown = holder != OutputFile::eNoLocks;
  if (holder != OutputFile::eNobody) return;
  progress->state = isPublished() ? CacheProgress::ePublished : CacheProgress::eDied;
}

}  // namespace kelsdk::io
