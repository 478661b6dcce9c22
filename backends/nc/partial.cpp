#include "backends/nc/partial.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "backends/io/folder.h"
#include "backends/io/replace.h"
#include "backends/nc/data_files.h"

namespace kelsdk::nc {
namespace {

using io::Error;

constexpr unsigned int kFolderMode = 0777;       // before the process's mask
constexpr unsigned int kDescriptionMode = 0666;  // likewise

}  // namespace

bool CreatePartial(const CacheName& name, const Identity& identity, Partial* partial,
                   Error& error) {
  partial->name = partial->target = name;
  partial->folder = name.folder + PartialFolderName(name.base, identity) + "/";
  io::ReplaceTarget target;
  if (!FindReplaceTarget(name.DescriptionPath().c_str(), &target, error)) return false;
  if (::mkdir(partial->folder.c_str(), kFolderMode) != 0) {
    return error.SetSystem(errno, "cannot make a folder beside the cache");
  }
  if (partial->description.Create(partial->DescriptionPath().c_str(), kDescriptionMode, error)) {
    return true;
  }
  ::rmdir(partial->folder.c_str());
  return false;
}

void DiscardPartial(Partial* partial) {
  std::vector<std::string> names;
  Error ignored;
  if (ListFolder(partial->folder, &names, ignored)) {
    for (const std::string& name : names) ::unlink((partial->folder + name).c_str());
  }
  ::rmdir(partial->folder.c_str());
  partial->description.Close(ignored);
}

}  // namespace kelsdk::nc
