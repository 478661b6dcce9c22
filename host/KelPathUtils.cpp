#include "host/KelPathUtils.h"

#include <limits.h>
#include <unistd.h>

#include <cstring>

namespace kelsdk {
namespace {

bool IsSeparator(char character) {
  return character == '/' || character == '\\';
}

KelString Part(const char* begin, const char* end) {
  return {begin, static_cast<unsigned int>(end - begin)};
}

// Where the last component begins.
const char* FileNameOf(const char* path) {
  const char* name = path;
  for (const char* at = path; *at != 0; ++at) {
    if (IsSeparator(*at)) name = at + 1;
  }
  return name;
}

// Appends the components of `path` to `out`, an absolute path of `length` characters without a
// trailing separator; returns the new length.
size_t AppendNormalised(const char* path, char* out, size_t length) {
  while (*path != 0) {
    if (IsSeparator(*path)) {
      ++path;
      continue;
    }
    const char* end = path;
    while (*end != 0 && !IsSeparator(*end)) ++end;
    const auto size = static_cast<size_t>(end - path);
    if (size == 2 && path[0] == '.' && path[1] == '.') {
      while (length > 0 && out[--length] != '/') {
      }
    } else if (size != 1 || path[0] != '.') {
      out[length++] = '/';
      std::memcpy(out + length, path, size);
      length += size;
    }
    path = end;
  }
  return length;
}

}  // namespace

KelString KelPathUtils::GetFolderName(const char* path) noexcept {
  if (path == nullptr) return ".";
  const char* end = FileNameOf(path);
  if (end == path) return ".";
  while (end > path && IsSeparator(end[-1])) --end;
  return Part(path, end);
}

KelString KelPathUtils::GetFileName(const char* path, bool withExtension) noexcept {
  if (path == nullptr) return "";
  const char* name = FileNameOf(path);
  const char* dot = std::strrchr(name, '.');
  if (withExtension || dot == nullptr || dot == name) return name;
  return Part(name, dot);
}

KelString KelPathUtils::Resolve(const char* path) noexcept {
  if (path == nullptr || *path == 0) return "";
  char folder[PATH_MAX] = "";
  if (!IsSeparator(*path) && ::getcwd(folder, sizeof folder) == nullptr) return "";
  // Room first, in a string that is as long as the result can get; then the components in place.
  KelString resolved = KelString(folder) + "/" + path;
  if (!resolved.IsValid()) return resolved;
  char* text = resolved.Buffer();
  size_t length = AppendNormalised(folder, text, 0);
  length = AppendNormalised(path, text, length);
  if (length == 0) text[length++] = '/';
  return resolved.Left(static_cast<unsigned int>(length));
}

}  // namespace kelsdk
