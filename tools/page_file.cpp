#include "tools/page_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "tools/tool_error.h"

namespace kelcache {

PageFile::PageFile(const std::string& file) : file_(file) {
  namespace fs = std::filesystem;
  std::error_code none;
  // A link stays a link.
  if (fs::is_symlink(file, none)) file_ = fs::weakly_canonical(file).string();
  if (fs::exists(file_, none) && !fs::is_regular_file(file_, none)) {
    throw Failed(file_, "is not a regular file");
  }
  const bool isThere = fs::exists(file_, none);
  if (isThere && ::access(file_.c_str(), W_OK) != 0) Fail(errno);
  part_ = file_ + ".part-" + std::to_string(::getpid());
  descriptor_ = ::open(part_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (descriptor_ < 0) Fail(errno);
  struct stat old = {};
  if (isThere && ::stat(file_.c_str(), &old) == 0) ::fchmod(descriptor_, old.st_mode & 0777);
}

PageFile::~PageFile() {
  if (descriptor_ < 0) return;
  ::close(descriptor_);
  ::unlink(part_.c_str());
}

void PageFile::Fail(int reason) const {
  throw Failed(file_, "cannot be written: " + std::generic_category().message(reason));
}

void PageFile::Restart() {
  if (::ftruncate(descriptor_, 0) != 0 || ::lseek(descriptor_, 0, SEEK_SET) != 0) Fail(errno);
  size_ = 0;
}

void PageFile::Write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor_, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) Fail(written < 0 ? errno : EIO);
    size_ += static_cast<std::uint64_t>(written);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void PageFile::Finish() {
  if (::fsync(descriptor_) != 0) Fail(errno);
  if (::rename(part_.c_str(), file_.c_str()) != 0) Fail(errno);
  ::close(descriptor_);
  descriptor_ = -1;
}

}  // namespace kelcache
