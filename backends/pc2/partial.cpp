#include "backends/pc2/partial.h"

#include <sys/stat.h>

#include <algorithm>
#include <tuple>

#include "backends/io/beside.h"
#include "backends/io/folder.h"
#include "backends/io/replace.h"
#include "backends/pc2/writer.h"

namespace kelsdk::pc2 {

std::optional<std::string> TargetOfPartial(const std::string& name) {
  const std::size_t at = name.rfind(kPartialSuffix);
  if (at == std::string::npos || at == 0) return std::nullopt;
  const auto number = name.begin() + static_cast<std::ptrdiff_t>(at + sizeof kPartialSuffix - 1);
  if (!std::all_of(number, name.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    return std::nullopt;
  }
  return name.substr(0, at);
}

std::string NameBeside(const std::string& target, const char* suffix, unsigned int attempt) {
  const std::size_t name = target.rfind('/') + 1;
  const std::size_t dot = target.rfind('.');
  const std::size_t end = dot == std::string::npos || dot <= name ? target.size() : dot;
  return io::NumberedName(target.substr(0, end) + suffix, attempt) + target.substr(end);
}

bool IsLater(const struct timespec& time, const struct timespec& other) {
  return std::tie(time.tv_sec, time.tv_nsec) > std::tie(other.tv_sec, other.tv_nsec);
}

std::vector<Partial> FindPartials(const std::string& target) {
  const std::string folder = io::FolderOf(target);
  const std::string targetName = target.substr(target.rfind('/') + 1);
  std::vector<Partial> partials;
  std::vector<std::string> names;
  io::Error ignored;
  io::ListFolder(folder, &names, ignored);
  for (const std::string& name : names) {
    struct stat status = {};
    if (TargetOfPartial(name) != targetName || ::stat((folder + name).c_str(), &status) != 0)
      continue;
    partials.push_back({folder + name, status.st_mtim});
  }
  std::sort(partials.begin(), partials.end(),
            [](const Partial& a, const Partial& b) { return IsLater(a.written, b.written); });
  return partials;
}

bool ReadWrittenHeader(const io::File& file, Header* header, io::Error& error) {
  unsigned char bytes[kHeaderSize];
  return file.ReadAt(0, bytes, sizeof bytes, error) && DecodeHeader(bytes, header, error) &&
         CheckCounts(*header, error);
}

bool ReadPartialHeader(const io::File& file, std::uint64_t size, Header* header, io::Error& error) {
  if (!ReadWrittenHeader(file, header, error)) return false;
  header->sampleCount = header->WholeSamples(size);
  if (header->sampleCount != 0) return true;
  return error.Set(io::Error::eCutShort, "holds no whole sample");
}

}  // namespace kelsdk::pc2
