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
  bool tells = true;
  return ReadFromMemory(offset, &run, 1, &tells) == 1;
}

std::size_t InputFile::ReadSome(std::uint64_t offset, void* buffer, std::size_t count) const {
  const ssize_t got = ::pread(descriptor_, buffer, count, static_cast<off_t>(offset));
  return got > 0 ? static_cast<std::size_t>(got) : 0;
}

std::size_t InputFile::ReadFromMemory(std::uint64_t offset, const struct iovec* runs, int runCount,
                                      bool* tells) const {
  const ssize_t got =
      ::preadv2(descriptor_, runs, runCount, static_cast<off_t>(offset), RWF_NOWAIT);
  if (got < 0 && (errno == EOPNOTSUPP || errno == ENOSYS)) *tells = false;
  return got > 0 ? static_cast<std::size_t>(got) : 0;
}

void InputFile::WillNeed(std::uint64_t offset, std::uint64_t count) const {
  // A hint: whatever it answers, the read that follows tells the truth.
  static_cast<void>(::posix_fadvise(descriptor_, static_cast<off_t>(offset),
                                    static_cast<off_t>(count), POSIX_FADV_WILLNEED));
}

}  // namespace kelsdk::io
