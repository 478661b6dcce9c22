#include "tools/cache_file.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "host/KelPathUtils.h"
#include "tools/readable.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;
using kelsdk::KelStatus;

const char* ExtensionOf(Format format) {
  switch (format) {
    case KelCache::ePC2Format: return ".pc2";
    case KelCache::eNCFormat: return ".xml";
    case KelCache::eAlembicFormat: return ".abc";
    case KelCache::eUnknownFormat: break;
  }
  return "";
}

std::string Absolute(const std::string& file) {
  return kelsdk::KelPathUtils::Resolve(file.c_str()).Buffer();
}

// A name with the format's own extension for a file that has another: the object looks for files
// by that extension. The link lives as long as this object, long enough to open through it.
class ExtensionLink {
 public:
  ExtensionLink(const std::string& target, const char* extension) {
    std::string folder = (std::filesystem::temp_directory_path() / "kelcache-XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) return;
    folder_ = folder;
    path_ = folder + "/" + std::filesystem::path(target).stem().string() + extension;
    if (::symlink(target.c_str(), path_.c_str()) != 0) path_.clear();
  }
  ~ExtensionLink() {
    std::error_code ignored;
    if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
  }
  ExtensionLink(const ExtensionLink&) = delete;
  ExtensionLink& operator=(const ExtensionLink&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string folder_;
  std::string path_;
};

}  // namespace

const char* NameOf(Format format) {
  switch (format) {
    case KelCache::ePC2Format: return "pc2";
    case KelCache::eNCFormat: return "nc";
    case KelCache::eAlembicFormat: return "alembic";
    case KelCache::eUnknownFormat: break;
  }
  return "unknown";
}

Format FormatOf(const std::string& file, const std::string& asName) {
  for (const Format format :
       {KelCache::ePC2Format, KelCache::eNCFormat, KelCache::eAlembicFormat}) {
    if (asName == NameOf(format)) return format;
  }
  std::string extension = std::filesystem::path(file).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  for (const Format format :
       {KelCache::ePC2Format, KelCache::eNCFormat, KelCache::eAlembicFormat}) {
    if (extension == ExtensionOf(format)) return format;
  }
  if (extension == ".ncx" || extension == ".ncc") {
    throw ToolError(eUsage, file + ": is a data file; name its description (.xml)");
  }
  throw ToolError(eUsage, file + ": the extension tells no format; use --as pc2|nc|alembic");
}

NCName::NCName(const std::string& file) {
  const std::string absolute = Absolute(file);
  folder = std::string(kelsdk::KelPathUtils::GetFolderName(absolute.c_str()).Buffer()) + "/";
  baseName = kelsdk::KelPathUtils::GetFileName(absolute.c_str(), false).Buffer();
}

CacheFile::CacheFile(const std::string& file, Format format)
    : file_(file),
      format_(format),
      manager_(kelsdk::KelManager::Create()),
      cache_(manager_ != nullptr ? KelCache::Create(manager_, file.c_str()) : nullptr) {
  if (cache_ == nullptr) {
    if (manager_ != nullptr) manager_->Destroy();
    throw Failed(file, "not enough memory");
  }
  cache_->SetCacheFileFormat(format, nullptr);
  cache_->SetCacheFileName(file.c_str(), Absolute(file).c_str(), nullptr);
}

CacheFile::~CacheFile() {
  manager_->Destroy();
}

void CacheFile::OpenForRead() {
  ExpectReadable(file_);
  const std::string absolute = Absolute(file_);
  const bool otherExtension =
      std::filesystem::path(absolute).extension().string() != ExtensionOf(format_);
  if (otherExtension && format_ == KelCache::eNCFormat) {
    throw Failed(file_, "an NC cache is named by its description, BASE.xml");
  }
  std::error_code unknown;
  std::optional<ExtensionLink> link;
  if (otherExtension && std::filesystem::exists(absolute, unknown)) {
    link.emplace(absolute, ExtensionOf(format_));
    cache_->SetCacheFileName("", link->path().c_str(), nullptr);
  }
  KelStatus status;
  if (!cache_->OpenFileForRead(&status)) {
    const std::string words = cache_->GetErrorString();
    Fail(status, words.empty() ? "could not be opened" : words);
  }
}

AlembicInterface& CacheFile::Alembic() {
  if (alembic_ == nullptr) {
    alembic_ = std::make_unique<AlembicInterface>(true);
    if (!alembic_->Open(file_.c_str(), 1)) throw Failed(file_, alembic_->GetErrorString());
  }
  return *alembic_;
}

kelsdk::zuCacheFileInterface& CacheFile::NC() {
  if (nc_ == nullptr) {
    const NCName name(file_);
    nc_ = std::make_unique<kelsdk::zuCacheFileInterface>();
    if (!nc_->initFileRead(name.baseName.c_str(), name.folder.c_str())) {
      throw Failed(file_, nc_->errorString());
    }
  }
  return *nc_;
}

std::string CacheFile::ReadProblem() const {
  const std::string words = cache_->GetErrorString();
  return words.empty() ? "could not be read" : words;
}

void CacheFile::Fail(const KelStatus& status, const std::string& otherwise) const {
  const std::string message = status.GetErrorString();
  throw Failed(file_, message.empty() ? otherwise : message);
}

}  // namespace kelcache
