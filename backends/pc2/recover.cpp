#include "backends/pc2/recover.h"

#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <utility>

#include "backends/io/beside.h"
#include "backends/io/input_file.h"
#include "backends/io/output_file.h"
#include "backends/io/replace.h"
#include "backends/pc2/header.h"
#include "backends/pc2/partial.h"
#include "backends/pc2/reader.h"
#include "backends/pc2/writer.h"

namespace kelsdk::pc2 {
namespace {

bool OpenPartial(const std::string& path, io::OutputFile* file, Header* header, io::Error& error) {
  std::uint64_t size = 0;
  return file->OpenExisting(path.c_str(), error) && file->Size(&size, error) &&
         ReadPartialHeader(*file, size, header, error);
}

// The lock is asked for last: a writer takes its own before it writes anything.
bool IsLeftover(const std::string& path) {
  io::InputFile file;
  Header header;
  io::Error ignored;
  return file.Open(path.c_str(), ignored) &&
         ReadPartialHeader(file, file.Size(), &header, ignored) &&
         !io::OutputFile::IsHeld(path.c_str());
}

bool FindFreeName(const std::string& target, std::string* name, io::Error& error) {
  for (unsigned int attempt = 1; attempt <= io::kMostNames; ++attempt) {
    *name = NameBeside(target, io::kRecoveredSuffix, attempt);
    if (!io::IsTaken(name->c_str())) return true;
  }
  return error.Set(io::Error::eExists, "every name from %.100s on is taken", name->c_str());
}

// Keeps the file that is about to be replaced under a name of its own, which it may have from a
// recovery that was interrupted.
bool KeepOlder(const std::string& target, const io::Report& report, io::Error& error) {
  for (unsigned int attempt = 1; attempt <= io::kMostNames; ++attempt) {
    const std::string name = NameBeside(target, io::kOlderSuffix, attempt);
    if (io::Link(target.c_str(), name.c_str(), error) ||
        (error.kind() == io::Error::eExists && io::IsSameFile(target.c_str(), name.c_str()))) {
      error.Clear();
      report.Say("the older file is kept as %s", name.c_str());
      return io::SyncFolderOf(name.c_str(), error);
    }
    if (error.kind() != io::Error::eExists) break;
  }
  const io::Error why = error;
  return error.Set(why.kind(), "the older file cannot be kept: %.128s", why.text());
}

// What stands at the target.
struct Standing {
  bool isWhole = false;  // or cannot be told from a whole one
  bool isNewer = false;  // written after the partial file
};

Standing LookAtStanding(const io::ReplaceTarget& target, const Partial& partial) {
  Standing standing;
  struct stat status = {};
  if (!target.exists) return standing;
  standing.isNewer =
      ::stat(target.path.c_str(), &status) != 0 || IsLater(status.st_mtim, partial.written);
  Reader reader;
  io::Error why;
  if (!reader.Open(target.path.c_str(), why)) {
    standing.isWhole = !why.IsAboutContent();
  } else {
    standing.isWhole = reader.header().version != kVersion || reader.IsWhole();
  }
  return standing;
}

// Makes the partial file a whole one. It keeps the time of its last sample, which tells older
// attempts from newer.
bool Complete(const Partial& partial, io::OutputFile* file, const Header& header,
              io::Error& error) {
  unsigned char bytes[kHeaderSize];
  EncodeHeader(header, bytes);
  if (!file->WriteAt(0, bytes, sizeof bytes, error) || !file->Truncate(header.FileSize(), error)) {
    return false;
  }
  const struct timespec times[] = {{0, UTIME_OMIT}, partial.written};
  static_cast<void>(::futimens(file->Descriptor(), times));
  return file->Sync(error);
}

bool Publish(const Partial& partial, io::OutputFile* file, const Header& header,
             const io::ReplaceTarget& target, bool force, const io::Report& report,
             io::Error& error) {
  const Standing standing = LookAtStanding(target, partial);
  if (force && standing.isNewer) {
    return error.Set(io::Error::eRefused,
                     "%.64s was written before the file that stands there, and is not put in its "
                     "place; recovered without force it goes beside it",
                     partial.path.substr(partial.path.rfind('/') + 1).c_str());
  }
  const bool beside = standing.isNewer || (standing.isWhole && !force);
  std::string name = target.path;
  if (beside && !FindFreeName(target.path, &name, error)) return false;
  if (!Complete(partial, file, header, error) ||
      (!beside && target.exists && !KeepOlder(target.path, report, error)) ||
      !io::Rename(partial.path.c_str(), name.c_str(), error) ||
      !io::SyncFolderOf(name.c_str(), error) || !file->Close(error)) {
    return false;
  }
  const std::string stays = beside ? "; " + target.path + " stays as it is" : "";
  report.Say("%u whole samples saved as %s%s", header.sampleCount, name.c_str(), stays.c_str());
  return true;
}

}  // namespace

bool Recover(const char* path, bool force, std::uint32_t* sampleCount, const io::Report& report,
             io::Error& error) {
  io::ReplaceTarget target;
  if (!io::FindReplaceTarget(path, &target, error)) return false;
  std::optional<Partial> newest;
  io::OutputFile file;
  Header header;
  for (const Partial& partial : FindPartials(target.path)) {
    if (newest) {
      if (IsLeftover(partial.path)) {
        report.Say("%s: an older attempt, left as it is; recover again saves it",
                   partial.path.c_str());
      }
    } else if (io::OutputFile opened; OpenPartial(partial.path, &opened, &header, error)) {
      file = std::move(opened);
      newest = partial;
    } else {
      report.Say("%s: %s", partial.path.c_str(), error.text());
    }
  }
  if (!newest) {
    return error.Set(io::Error::eNotFound, "no dead writer has left anything to recover");
  }
  if (!Publish(*newest, &file, header, target, force, report, error)) return false;
  *sampleCount = header.sampleCount;
  return true;
}

std::uint32_t CountLeftovers(const char* path, const io::Report& report) {
  io::ReplaceTarget target;
  io::Error ignored;
  // Whatever stands there, the path is followed.
  io::FindReplaceTarget(path, &target, ignored);
  std::uint32_t count = 0;
  for (const Partial& partial : FindPartials(target.path)) {
    if (!IsLeftover(partial.path)) continue;
    ++count;
    report.Say("%s: left by a writer that died", partial.path.c_str());
  }
  return count;
}

}  // namespace kelsdk::pc2
