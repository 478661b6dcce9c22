#pragma once

#include <memory>
#include <optional>
#include <string>

#include "backends/AlembicInterface.h"
#include "backends/zuPointCache2IO.h"
#include "cache/KelCache.h"

namespace kelcache {

using Format = kelsdk::KelCache::EFileFormat;

/// A cache object of its own manager, named after one file. Ends with what it holds.
class CacheFile {
 public:
  CacheFile(const std::string& file, Format format);
  ~CacheFile();
  CacheFile(const CacheFile&) = delete;
  CacheFile& operator=(const CacheFile&) = delete;

  /// Opens for reading; throws eFailed with the reason in words.
  void OpenForRead();

  const std::string& file() const { return file_; }
  Format format() const { return format_; }
  kelsdk::KelCache* operator->() { return cache_; }

  /// The archive itself, for what the object does not tell; opened when first asked for. Throws
  /// eFailed.
  AlembicInterface& Alembic();
  /// Likewise the NC cache.
  kelsdk::zuCacheFileInterface& NC();
  /// Likewise the PC2 file, whose samples it reads into any memory.
  kelsdk::zuPointCache2IO& PC2();

  /// Why the object's last read failed, in words.
  std::string ReadProblem() const;

  /// Throws eFailed with the status's message, or `otherwise` when it has none.
  [[noreturn]] void Fail(const kelsdk::KelStatus& status, const std::string& otherwise) const;

 private:
  std::string file_;
  Format format_;
  kelsdk::KelManager* manager_;
  kelsdk::KelCache* cache_;
  std::unique_ptr<AlembicInterface> alembic_;
  std::unique_ptr<kelsdk::zuCacheFileInterface> nc_;
  std::unique_ptr<kelsdk::zuPointCache2IO> pc2_;
};

/// The folder (with its final "/") and base name by which the channel-cache library knows FILE.xml.
struct NCName {
  explicit NCName(const std::string& file);
  std::string folder;
  std::string baseName;
};

}  // namespace kelcache
