#include "tools/cache_file.h"

#include "host/KelPathUtils.h"
#include "tools/readable.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::KelCache;
using kelsdk::KelStatus;

std::string Absolute(const std::string& file) {
  return kelsdk::KelPathUtils::Resolve(file.c_str()).Buffer();
}

}  // namespace

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
  KelStatus status;
  if (cache_->OpenNamedFileForRead(&status)) return;
  const std::string words = cache_->GetErrorString();
  Fail(status, words.empty() ? "could not be opened" : words);
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

kelsdk::zuPointCache2IO& CacheFile::PC2() {
  if (pc2_ == nullptr) {
    pc2_ = std::make_unique<kelsdk::zuPointCache2IO>();
    if (!pc2_->initialize(file_.c_str(), kelsdk::zuPointCache2IO::readMode)) {
      throw Failed(file_, pc2_->errorString());
    }
  }
  return *pc2_;
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
