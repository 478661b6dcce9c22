#include "cache/paths.h"

#include "host/KelPathUtils.h"

namespace kelsdk {

void NormaliseSlashes(KelString& text) {
  while (text.FindAndReplace("\\", "/", 0)) {
  }
}

// KelPathUtils takes plain characters, which do not tell an invalid string from an empty one.

KelString FolderOf(const KelString& path) {
  return path.IsValid() ? KelPathUtils::GetFolderName(path) + "/" : path;
}

KelString BaseNameOf(const KelString& path) {
  return path.IsValid() ? KelPathUtils::GetFileName(path, false) : path;
}

const char* ExtensionOf(KelCache::EFileFormat format) {
  switch (format) {
    case KelCache::ePC2Format: return ".pc2";
    case KelCache::eNCFormat: return ".xml";
    case KelCache::eUnknownFormat:
    case KelCache::eAlembicFormat: break;
  }
  return ".abc";
}

KelString CandidateOf(const KelString& path, const char* extension) {
  return FolderOf(path) + BaseNameOf(path) + extension;
}

CacheNames::CacheNames(const KelCache& cache) {
  cache.GetCacheFileName(relative, absolute);
  NormaliseSlashes(relative);
  NormaliseSlashes(absolute);
}

KelString CacheNames::Resolved() const {
  if (!relative.IsValid()) return relative;
  KelString resolved = KelPathUtils::Resolve(relative);
  NormaliseSlashes(resolved);
  return resolved;
}

}  // namespace kelsdk
