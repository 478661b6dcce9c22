#include "tests/support/files.h"

#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace kelsdk::test {

namespace fs = std::filesystem;

ScratchFolder::ScratchFolder(const fs::path& parent) {
  std::string name = (parent / "kelcache-test-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch folder");
  path_ = name;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

Bytes ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(in), {}};
}

void WriteBytes(const std::string& path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

bool Exists(const std::string& path) {
  return fs::exists(fs::symlink_status(path));
}

std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string TestData(const std::string& name) {
  return std::string(KELCACHE_TEST_DATA) + "/" + name;
}

}  // namespace kelsdk::test
