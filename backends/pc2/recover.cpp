#include "backends/pc2/recover.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "backends/io/output_file.h"
#include "backends/io/replace.h"
#include "backends/pc2/header.h"
#include "backends/pc2/writer.h"

namespace kelsdk::pc2 {
namespace {

struct Partial {
  std::string path;
  struct timespec written;
};

bool IsPartialOf(const std::string& name, const std::string& targetName) {
  const std::string prefix = targetName + kPartialSuffix;
  return name.starts_with(prefix) &&
         std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()), name.end(),
                     [](char c) { return c >= '0' && c <= '9'; });
}

std::vector<Partial> FindPartials(const std::string& target) {
  const std::string folder = io::FolderOf(target);
  const std::string targetName = target.substr(target.rfind('/') + 1);
  std::vector<Partial> partials;
  // The standard library's iterator ends the process when it has no memory.
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), ::closedir);
  while (const dirent* entry = entries != nullptr ? ::readdir(entries.get()) : nullptr) {
    const std::string name = entry->d_name;
    struct stat status = {};
    if (!IsPartialOf(name, targetName) || ::stat((folder + name).c_str(), &status) != 0) continue;
    partials.push_back({folder + name, status.st_mtim});
  }
  std::sort(partials.begin(), partials.end(), [](const Partial& a, const Partial& b) {
    return std::tie(a.written.tv_sec, a.written.tv_nsec) >
           std::tie(b.written.tv_sec, b.written.tv_nsec);
  });
  return partials;
}

// Opens a partial file and corrects its header to the whole samples that it holds.
bool OpenPartial(const std::string& path, io::OutputFile* file, Header* header, io::Error& error) {
  std::uint64_t size = 0;
  unsigned char bytes[kHeaderSize];
  if (!file->OpenExisting(path.c_str(), error) || !file->Size(&size, error) ||
      !file->ReadAt(0, bytes, sizeof bytes, error) || !DecodeHeader(bytes, header, error) ||
      !CheckCounts(*header, error)) {
    return false;
  }
  header->sampleCount = header->WholeSamples(size);
  if (header->sampleCount != 0) return true;
  return error.Set(io::Error::eCutShort, "holds no whole sample");
}

// Keeps the file that is about to be replaced under a name of its own.
bool KeepOlder(const std::string& target, const Report& report, io::Error& error) {
  for (unsigned int attempt = 1; attempt < 1000; ++attempt) {
    const std::string name =
        target + ".before-recover" + (attempt > 1 ? std::to_string(attempt) : std::string());
    if (::link(target.c_str(), name.c_str()) == 0) {
      report(("the older cache is kept as " + name).c_str());
      return true;
    }
    if (errno != EEXIST) break;
  }
  return error.SetSystem(errno, "keeping the older cache");
}

bool Publish(const Partial& partial, io::OutputFile* file, const Header& header,
             const io::ReplaceTarget& target, const Report& report, io::Error& error) {
  unsigned char bytes[kHeaderSize];
  EncodeHeader(header, bytes);
  return file->WriteAt(0, bytes, sizeof bytes, error) &&
         file->Truncate(header.OffsetOf(header.sampleCount), error) && file->Sync(error) &&
         (!target.exists || KeepOlder(target.path, report, error)) &&
         io::Rename(partial.path.c_str(), target.path.c_str(), error) &&
         io::SyncFolderOf(target.path.c_str(), error) && file->Close(error);
}

}  // namespace

bool Recover(const char* path, std::uint32_t* sampleCount, const Report& report, io::Error& error) {
  io::ReplaceTarget target;
  if (!io::FindReplaceTarget(path, &target, error)) return false;
  for (const Partial& partial : FindPartials(target.path)) {
    io::OutputFile file;
    Header header;
    if (!OpenPartial(partial.path, &file, &header, error)) {
      report((partial.path + ": " + error.text()).c_str());
      continue;
    }
    if (!Publish(partial, &file, header, target, report, error)) return false;
    *sampleCount = header.sampleCount;
    return true;
  }
  return error.Set(io::Error::eNotFound, "no dead writer has left anything to recover");
}

}  // namespace kelsdk::pc2
