#include "backends/nc/follow.h"

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "backends/io/folder.h"
#include "backends/io/follow.h"
#include "backends/io/leftover.h"
#include "backends/nc/description.h"
#include "backends/nc/file_ends.h"
#include "backends/nc/scan.h"

namespace kelsdk::nc {
namespace {

using io::Error;

// A data file in the folder of a writer, which may be at it.
struct FileUnderWay {
  std::uint64_t size = 0;
  std::uint64_t end = kHeaderSize;  // of the last whole time block
  bool isFinished = false;          // no more is written to it: it is not looked at again
};

class PartialFollower : public io::Follower {
 public:
  PartialFollower(const CacheName& name, const std::string& folderName, const Identity& identity)
      : name_(name),
        folderName_(folderName),
        folder_(name.folder + folderName + "/"),
        identity_(identity) {}

  bool Look(CacheProgress* progress, Error& error) override {
    io::Entry own;
    io::Entry description;
    std::vector<std::string> names;
    if (!io::LookAt(name_.folder + folderName_, &own, error) ||
        !io::ListFolder(folder_, &names, error)) {
      if (error.kind() != Error::eNotFound) return false;
      return NoteEnd(progress, error);
    }
    written_ = std::max(written_, own.written);
    if (!ScanFiles(names, error)) return false;
    const bool hasDescription = io::LookAt(DescriptionPath(), &description, error);
    if (!hasDescription && error.kind() != Error::eNotFound) return false;
    error.Clear();
    Tell(own, progress);
    const bool isBegun = !files_.empty() || description.size != 0 || io::IsSettled(written_);
    if (!hasDescription) {
      // It is made right after its folder, and goes to its place last.
      return isBegun ? NoteEnd(progress, error) : true;
    }
    if (description.size != 0) progress->state = CacheProgress::eBeingPlaced;
    if (isBegun) io::JudgeByLock(DescriptionPath(), progress, [this] { return IsPublished(); });
    return true;
  }

 private:
  std::string DescriptionPath() const { return folder_ + name_.base + ".xml"; }

  bool IsPublished() const {
    Description description;
    Error ignored;
    return ReadDescription(name_.DescriptionPath(), &description, ignored) &&
           description.identity == identity_;
  }

  bool NoteEnd(CacheProgress* progress, Error& error) const {
    error.Clear();
    progress->state = IsPublished() ? CacheProgress::ePublished : CacheProgress::eGivenUp;
    return true;
  }

  void Tell(const io::Entry& own, CacheProgress* progress) const {
    progress->samples = blocks_;
    progress->bytes = bytes_;
    progress->begun = own.made;
    progress->written = written_;
    progress->hasFrames = blocks_ != 0 && layout_.ticksPerFrame > 0;
    if (!progress->hasFrames) return;
    const double ticks = ExactTicks(layout_.ticksPerFrame, layout_.exactRate);
    progress->firstFrame = firstTick_ / ticks;
    progress->lastFrame = lastTick_ / ticks;
  }

  // Files that have been put in place already stay counted.
  bool ScanFiles(const std::vector<std::string>& names, Error& error) {
    for (const std::string& fileName : names) {
      if (!IsDataFileName(fileName, name_.base)) continue;
      FileUnderWay& file = files_[fileName];
      if (file.isFinished || ScanFile(folder_ + fileName, &file, error)) continue;
      if (error.kind() != Error::eNotFound && !error.IsAboutContent()) return false;
      error.Clear();
    }
    return true;
  }

  // What the writer is at may not be whole yet.
  bool ScanFile(const std::string& path, FileUnderWay* known, Error& error) {
    io::Entry entry;
    io::InputFile file;
    FileHeader header;
    if (!io::LookAt(path, &entry, error)) return false;
    if (entry.size == known->size) return true;
    if (!file.Open(path.c_str(), error) || !ReadFileHeader(file, &header, error)) return false;
    layout_ = header.Layout();
    written_ = std::max(written_, entry.written);
    FileEnd end;
    if (!ScanBlocks(file, known, error) || !end.Read(file, error)) return false;
    bytes_ += file.Size() - known->size;
    known->size = file.Size();
    known->isFinished = end.HasTrailer();
    return true;
  }

  // Goes on behind the last whole block: what comes after it may have been written anew.
  bool ScanBlocks(const io::InputFile& file, FileUnderWay* known, Error& error) {
    RecordScanner scanner(file, file.Size(), known->end);
    RecordHeader record;
    while (scanner.Next(&record, error)) {
      if (record.kind != eBlockEndRecord) continue;
      known->end = scanner.Position();
      firstTick_ = blocks_ == 0 ? record.tick : std::min(firstTick_, record.tick);
      lastTick_ = blocks_ == 0 ? record.tick : std::max(lastTick_, record.tick);
      ++blocks_;
    }
    if (error && !error.IsAboutContent()) return false;
    error.Clear();
    return true;
  }

  const CacheName name_;
  const std::string folderName_;
  const std::string folder_;
  const Identity identity_;
  std::unordered_map<std::string, FileUnderWay> files_;
  FileLayout layout_;
  std::uint64_t blocks_ = 0;
  std::uint64_t bytes_ = 0;
  std::int32_t firstTick_ = 0;
  std::int32_t lastTick_ = 0;
  std::int64_t written_ = 0;
};

}  // namespace

bool Follow(const CacheName& name, CacheProgressFunction told, const io::Report& report,
            Error& error) {
  std::vector<std::string> names;
  if (!io::ListFolder(name.folder, &names, error)) return false;
  std::vector<std::unique_ptr<io::Follower>> followers;
  for (const std::string& folderName : names) {
    const auto identity = ParsePartialFolderName(folderName, name.base);
    if (!identity) continue;
    followers.push_back(std::make_unique<PartialFollower>(name, folderName, *identity));
  }
  return io::FollowNewest(followers, told, report);
}

}  // namespace kelsdk::nc
