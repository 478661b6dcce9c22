#include "backends/pc2/partial.h"

#include <algorithm>

#include "backends/io/beside.h"
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

bool ReadPartialHeader(const io::File& file, std::uint64_t size, Header* header, io::Error& error) {
  unsigned char bytes[kHeaderSize];
  if (!file.ReadAt(0, bytes, sizeof bytes, error) || !DecodeHeader(bytes, header, error) ||
      !CheckCounts(*header, error)) {
    return false;
  }
  header->sampleCount = header->WholeSamples(size);
  if (header->sampleCount != 0) return true;
  return error.Set(io::Error::eCutShort, "holds no whole sample");
}

}  // namespace kelsdk::pc2
