#include "backends/pc2/clean.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "backends/io/beside.h"
#include "backends/io/folder.h"
#include "backends/io/input_file.h"
#include "backends/io/replace.h"
#include "backends/pc2/header.h"
#include "backends/pc2/partial.h"
#include "backends/pc2/reader.h"

namespace kelsdk::pc2 {
namespace {

using io::Error;
using io::Leftover;

// Names of other programs' files end likewise, in ".partial" above all.
bool HasExtension(const std::string& name) {
  constexpr char kExtension[] = ".pc2";
  return name.size() >= 4 &&
         std::equal(name.end() - 4, name.end(), kExtension, [](char c, char small) {
           return (c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c) == small;
         });
}

// A partial file begins with the signature, or ends before it does.
bool BeginsLikeOurs(const io::InputFile& file, const std::string& target) {
  char bytes[sizeof kSignature];
  Error ignored;
  const auto there = static_cast<std::size_t>(std::min<std::uint64_t>(file.Size(), sizeof bytes));
  if (there < sizeof bytes && !HasExtension(target)) return false;
  return file.ReadAt(0, bytes, there, ignored) && std::memcmp(bytes, kSignature, there) == 0;
}

// The lock is asked for last, and not at all where a writer may be about to take its own.
void JudgePartial(const std::string& path, const io::InputFile& file, bool isLockOurs,
                  Leftover* leftover) {
  Header header;
  Error error;
  const bool holdsSamples = ReadPartialHeader(file, file.Size(), &header, error);
  if (error && !error.IsAboutContent()) {
    leftover->CannotBeTold(error);
  } else if (!holdsSamples && !io::IsSettled(leftover->since)) {
    leftover->Is(CacheLeftover::eInUse, io::kNotSettled);
  } else if (!isLockOurs && io::OutputFile::IsHeld(path.c_str())) {
    leftover->Is(CacheLeftover::eInUse, io::kHeldByWriter);
  } else if (holdsSamples) {
    leftover->Is(CacheLeftover::eOfUse, io::kSavable);
  } else {
    leftover->Is(CacheLeftover::eUseless, "holds no whole sample");
  }
}

bool LookAtPartial(const std::string& folder, const std::string& name, const std::string& target,
                   bool isLockOurs, Leftover* leftover) {
  const std::string path = folder + name;
  io::Entry entry;
  io::InputFile file;
  Error error;
  if (!io::LookAt(path, &entry, error) || !entry.isFile) return false;
  leftover->kind = CacheLeftover::ePartialFile;
  leftover->bytes = entry.size;
  leftover->since = entry.written;
  if (!file.Open(path.c_str(), error)) {
    leftover->CannotBeTold(error);
    return error.kind() != Error::eNotFound && HasExtension(target);
  }
  if (!BeginsLikeOurs(file, target)) return false;
  JudgePartial(path, file, isLockOurs, leftover);
  return true;
}

bool LookAtOlder(const std::string& folder, const std::string& name, const std::string& target,
                 Leftover* leftover) {
  const std::string path = folder + name;
  const std::string standing = folder + target;
  io::Entry entry;
  Error error;
  if (!io::LookAt(path, &entry, error) || !entry.isFile) return false;
  leftover->kind = CacheLeftover::eOlderCache;
  leftover->bytes = entry.size;
  leftover->since = entry.changed;
  Reader reader;
  if (io::IsSameFile(path.c_str(), standing.c_str())) {
    leftover->Is(CacheLeftover::eOfUse, "may be the only copy: nothing took its place yet");
  } else if (!reader.Open(standing.c_str(), error)) {
    leftover->Is(CacheLeftover::eOfUse, "may be the only copy: " + target + ": " + error.text());
  } else if (!reader.IsWhole()) {
    leftover->Is(CacheLeftover::eOfUse, "may be the only copy: " + target + " is cut short");
  } else {
    leftover->Is(CacheLeftover::eUseless, io::kReplaced);
  }
  return true;
}

// "shot.pc2" of "shot.before-recover2.pc2".
std::optional<std::string> TargetOfOlder(const std::string& name) {
  std::size_t length = 0;
  std::size_t ownLength = 0;
  if (!io::ParseOlderName(name, &length, &ownLength)) return std::nullopt;
  const std::string extension = name.substr(ownLength);
  if (extension.size() != 4 || !HasExtension(extension)) return std::nullopt;
  return name.substr(0, length) + extension;
}

// False for what is no leftover.
bool Look(const std::string& folder, const std::string& name, bool isLockOurs, Leftover* leftover) {
  leftover->name = name;
  if (const auto target = TargetOfPartial(name)) {
    return LookAtPartial(folder, name, *target, isLockOurs, leftover);
  }
  const auto target = TargetOfOlder(name);
  return target && LookAtOlder(folder, name, *target, leftover);
}

}  // namespace

bool FindLeftovers(const std::string& folder, std::vector<Leftover>* leftovers, Error& error) {
  std::vector<std::string> names;
  if (!io::ListFolder(folder, &names, error)) return false;
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    Leftover leftover;
    if (Look(folder, name, false, &leftover)) leftovers->push_back(std::move(leftover));
  }
  return true;
}

bool RemoveLeftover(const std::string& folder, const std::string& leftoverName, bool force,
                    Error& error) {
  const std::string path = folder + leftoverName;
  const auto isRemovable = [&](bool isLockOurs, Leftover* leftover) {
    return Look(folder, leftoverName, isLockOurs, leftover)
               ? io::ExpectRemovable(*leftover, force, error)
               : error.Set(Error::eNotFound, "is not there any more");
  };
  Leftover leftover;
  io::OutputFile lock;
  if (!isRemovable(false, &leftover)) return false;
  // What was looked at before may have changed until the lock was taken.
  const bool isPartial = leftover.kind == CacheLeftover::ePartialFile;
  if (isPartial &&
      (!io::LockForRemoval(path.c_str(), &lock, error) || !isRemovable(true, &leftover))) {
    return false;
  }
  return io::Remove(path.c_str(), error) && io::SyncFolderOf(path.c_str(), error);
}

}  // namespace kelsdk::pc2
