#include "host/KelStatus.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

#include "host/KelMemory.h"

namespace kelsdk {
namespace {

KelString FormatMessage(const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  KelString message;
  if (length > 0) {
    const unsigned int size = static_cast<unsigned int>(length) + 1;
    if (auto* text = static_cast<char*>(KelMalloc(size))) {
      std::vsnprintf(text, size, format, again);
      message = KelString(text, size - 1);
      KelFree(text);
    }
  }
  va_end(again);
  return message;
}

}  // namespace

void KelStatus::Clear() noexcept {
  SetCode(eSuccess);
}

void KelStatus::SetCode(EStatusCode code) noexcept {
  code_ = code;
  message_.Clear();
}

void KelStatus::SetCode(EStatusCode code, const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  // Formatted before the old message goes: an argument may be the old message.
  KelString message = FormatMessage(format, arguments);
  va_end(arguments);
  code_ = code;
  message_ = std::move(message);
}

}  // namespace kelsdk
