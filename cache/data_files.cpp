#include "cache/checks.h"
#include "cache/paths.h"
#include "host/KelPathUtils.h"

namespace kelsdk {

int KelCache::GetCacheDataFileCount(KelStatus* status) const {
  ClearStatus(status);
  if (GetCacheFileFormat() != eNCFormat) return 0;
  if (internalState == nullptr || internalState->ncCache == nullptr) return 0;
  // The library's file 0 is the description.
  const unsigned int count = internalState->ncCache->getDataFileCount();
  return count != 0 ? static_cast<int>(count - 1) : 0;
}

bool KelCache::GetCacheDataFileName(int fileIndex, KelString& relativeFileName,
                                    KelString& absoluteFileName, KelStatus* status) {
  ClearStatus(status);
  if (GetCacheFileFormat() != eNCFormat) return Fail(status, kInvalidFormat);
  if (internalState == nullptr || internalState->ncCache == nullptr) {
    return Fail(status, "The cache file can not be opened");
  }
  if (fileIndex < 0 || fileIndex >= GetCacheDataFileCount(status)) {
    return Fail(status, "The file index is invalid");
  }
  char* path = nullptr;
  if (!internalState->ncCache->getDataFilePath(static_cast<unsigned int>(fileIndex) + 1, &path)) {
    return Fail(status, "Failed to get the cache file's name");
  }
  KelString absolute(path);
  KelFree(path);
  NormaliseSlashes(absolute);
  const CacheNames names(*this);
  KelString relative = FolderOf(names.relative) + KelPathUtils::GetFileName(absolute, true);
  if (!absolute.IsValid() || !relative.IsValid()) return Fail(status, KelStatus::eFailure);
  absoluteFileName = std::move(absolute);
  relativeFileName = std::move(relative);
  return true;
}

}  // namespace kelsdk
