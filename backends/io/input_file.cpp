#include "backends/io/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

namespace kelsdk::io {

bool InputFile::Open(const char* path, Error& error) {
  Close();
  // Non-blocking: opening a pipe without a writer must not hang.
  descriptor_ = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor_ < 0) return error.SetSystem(errno, "cannot open");
  if (Refresh(error)) return true;
  Close();
  return false;
}

void InputFile::Close() {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
  size_ = 0;
}

bool InputFile::Refresh(Error& error) {
  struct stat entry = {};
  if (::fstat(descriptor_, &entry) != 0)
    return error.SetSystem(errno, "cannot ask the file's size");
  if (S_ISDIR(entry.st_mode)) return error.Set(Error::eNotAFile, "is a directory");
  if (!S_ISREG(entry.st_mode)) return error.Set(Error::eNotAFile, "is not a regular file");
  size_ = static_cast<std::uint64_t>(entry.st_size);
  return true;
}

bool InputFile::IsInMemory(std::uint64_t offset) const {
  char byte = 0;
  const struct iovec run = {&byte, 1};
  return ::preadv2(descriptor_, &run, 1, static_cast<off_t>(offset), RWF_NOWAIT) == 1;
}

void InputFile::WillNeed(std::uint64_t offset, std::uint64_t count) const {
  // A hint: whatever it answers, the read that follows tells the truth.
  static_cast<void>(::posix_fadvise(descriptor_, static_cast<off_t>(offset),
                                    static_cast<off_t>(count), POSIX_FADV_WILLNEED));
}

}  // namespace kelsdk::io
