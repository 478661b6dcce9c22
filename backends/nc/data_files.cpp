#include "backends/nc/data_files.h"

#include "backends/io/input_file.h"
#include "backends/nc/file_ends.h"

namespace kelsdk::nc {

using io::Error;

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
