#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace kelsdk::test {

/// A folder of its own, removed with all that is in it.
class ScratchFolder {
 public:
  explicit ScratchFolder(
      const std::filesystem::path& parent = std::filesystem::temp_directory_path());
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }
  /// The path of a file of that name in the folder.
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

using Bytes = std::vector<std::uint8_t>;

Bytes ReadBytes(const std::string& path);
void WriteBytes(const std::string& path, const Bytes& bytes);
bool Exists(const std::string& path);
/// The names in a folder, sorted.
std::vector<std::string> NamesIn(const std::string& folder);

/// The path of a file of tests/data.
std::string TestData(const std::string& name);

}  // namespace kelsdk::test
