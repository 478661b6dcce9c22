#include "backends/io/error.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace kelsdk::io {
namespace {

Error::EKind KindOf(int errorNumber) {
  switch (errorNumber) {
    case ENOENT:
    case ENOTDIR: return Error::eNotFound;
    case EEXIST: return Error::eExists;
    case EACCES:
    case EPERM:
    case EROFS: return Error::eDenied;
    case EISDIR: return Error::eNotAFile;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return Error::eNoSpace;
    case ENOMEM: return Error::eNoMemory;
    default: return Error::eDevice;
  }
}

}  // namespace

void Error::Clear() {
  kind_ = eNone;
  text_[0] = 0;
}

bool Error::Set(EKind kind, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text_, sizeof text_, format, arguments);
  va_end(arguments);
  kind_ = kind;
  return false;
}

bool Error::SetSystem(int errorNumber, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text_, sizeof text_, format, arguments);
  va_end(arguments);
  const std::size_t used = std::strlen(text_);
  char reason[128];
  // The GNU form: thread-safe, and its result may or may not be the buffer.
  const char* words = ::strerror_r(errorNumber, reason, sizeof reason);
  std::snprintf(text_ + used, sizeof text_ - used, "%s%s", used != 0 ? ": " : "", words);
  kind_ = KindOf(errorNumber);
  return false;
}

}  // namespace kelsdk::io
