#include "backends/nc/data_files.h"

#include <dirent.h>

#include <cerrno>
#include <memory>

#include "backends/io/input_file.h"
#include "backends/nc/file_ends.h"

namespace kelsdk::nc {

using io::Error;

bool ListFolder(const std::string& folder, std::vector<std::string>* names, Error& error) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), ::closedir);
  if (entries == nullptr) return error.SetSystem(errno, "cannot list the folder");
  while (const dirent* entry = ::readdir(entries.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names->push_back(name);
  }
  return true;
}

bool ReadFileIdentity(const std::string& path, Identity* identity, Error& error) {
  io::InputFile file;
  FileHeader header;
  if (!file.Open(path.c_str(), error) || !ReadFileHeader(file, &header, error)) return false;
  *identity = header.identity;
  return true;
}

bool CarriesIdentity(const std::string& path, const Identity& identity) {
  Identity found = {};
  Error ignored;
  return ReadFileIdentity(path, &found, ignored) && found == identity;
}

}  // namespace kelsdk::nc
