#pragma once

#include "cache/KelCache.h"

namespace kelsdk {

/// How the two stored names become paths. Every path made here uses "/" only. A string made without
/// memory is invalid, and so is all that is made from it (KelString::IsValid).

void NormaliseSlashes(KelString& text);

/// The folder part, with its final "/".
KelString FolderOf(const KelString& path);

/// The last component without its extension.
KelString BaseNameOf(const KelString& path);

/// ".pc2", ".xml", or ".abc" for any other format.
const char* ExtensionOf(KelCache::EFileFormat format);

/// Folder + base name + extension.
KelString CandidateOf(const KelString& path, const char* extension);

/// The stored names of a cache, slashes normalised.
struct CacheNames {
  explicit CacheNames(const KelCache& cache);

  bool AreValid() const { return relative.IsValid() && absolute.IsValid(); }
  /// What the relative name resolves to.
  KelString Resolved() const;

  KelString relative;
  KelString absolute;
};

}  // namespace kelsdk
