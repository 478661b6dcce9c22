#include "backends/pc2/follow.h"

#include <memory>
#include <utility>
#include <vector>

#include "backends/io/folder.h"
#include "backends/io/follow.h"
#include "backends/io/input_file.h"
#include "backends/io/leftover.h"
#include "backends/io/replace.h"
#include "backends/pc2/header.h"
#include "backends/pc2/partial.h"

namespace kelsdk::pc2 {
namespace {

using io::Error;

class PartialFollower : public io::Follower {
 public:
  PartialFollower(std::string path, std::string target)
      : path_(std::move(path)), target_(std::move(target)) {}

  bool Look(CacheProgress* progress, Error& error) override {
    io::Entry entry;
    const bool isThere = io::LookAt(path_, &entry, error);
    if (!isThere && error.kind() != Error::eNotFound) return false;
    error.Clear();
    if (number_ == 0) number_ = entry.number;
    if (!isThere || entry.number != number_) {
      progress->state = IsPublished() ? CacheProgress::ePublished : CacheProgress::eGivenUp;
      return true;
    }
    progress->begun = entry.made;
    progress->written = entry.written;
    progress->bytes = entry.size;
    const bool isBegun = NoteSamples(entry.size, progress, error);
    if (error && !error.IsAboutContent()) return false;
    error.Clear();
    if (isBegun || io::IsSettled(entry.written)) {
      io::JudgeByLock(path_, progress, [this] { return IsPublished(); });
    }
    return true;
  }

 private:
  // The file that was gathered bears the target's name once it is published.
  bool IsPublished() const {
    io::Entry entry;
    Error ignored;
    return number_ != 0 && io::LookAt(target_, &entry, ignored) && entry.number == number_;
  }

  // Once a sample was written past a gap, the header tells of those before it alone.
  bool NoteSamples(std::uint64_t size, CacheProgress* progress, Error& error) const {
    io::InputFile file;
    Header header;
    if (!file.Open(path_.c_str(), error) || !ReadWrittenHeader(file, &header, error)) return false;
    const std::uint32_t samples = header.WholeSamples(size);
    progress->samples = samples;
    progress->promised = size > header.FileSize() ? 0 : header.sampleCount;
    progress->hasFrames = samples != 0;
    progress->firstFrame = header.startFrame;
    progress->lastFrame = header.startFrame + (double(samples) - 1) * header.sampleRate;
    return true;
  }

  const std::string path_;
  const std::string target_;
  std::uint64_t number_ = 0;
};

}  // namespace

bool Follow(const std::string& path, CacheProgressFunction told, const io::Report& report) {
  io::ReplaceTarget target;
  Error ignored;
  // Whatever stands there, the path is followed.
  io::FindReplaceTarget(path.c_str(), &target, ignored);
  std::vector<std::unique_ptr<io::Follower>> followers;
  for (const Partial& partial : FindPartials(target.path)) {
    followers.push_back(std::make_unique<PartialFollower>(partial.path, target.path));
  }
  return io::FollowNewest(followers, told, report);
}

}  // namespace kelsdk::pc2
