#include "tools/readable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

class Descriptor {
 public:
  // Non-blocking: opening a pipe without a writer must not hang.
  explicit Descriptor(const std::string& file)
      : number_(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }

 private:
  int number_;
};

}  // namespace

void ExpectReadable(const std::string& file) {
  const Descriptor opened(file);
  if (opened.number() < 0) {
    const int reason = errno;
    if (reason == ENOENT) throw Failed(file, "there is no such file");
    throw Failed(file, "cannot open: " + std::generic_category().message(reason));
  }
  struct stat entry = {};
  if (::fstat(opened.number(), &entry) != 0) {
    throw Failed(file, "cannot open: " + std::generic_category().message(errno));
  }
  if (S_ISDIR(entry.st_mode)) throw Failed(file, "is a directory");
  if (!S_ISREG(entry.st_mode)) throw Failed(file, "is not a regular file");
}

bool SystemFails(const std::string& file) {
  const Descriptor opened(file);
  if (opened.number() < 0) return errno != ENOENT;
  std::vector<char> buffer(size_t{1} << 20);
  for (;;) {
    const ssize_t got = ::read(opened.number(), buffer.data(), buffer.size());
    if (got == 0) return false;
    if (got < 0 && errno != EINTR) return true;
  }
}

}  // namespace kelcache
