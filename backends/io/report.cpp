#include "backends/io/report.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace kelsdk::io {

void Report::Say(const char* format, ...) const {
  if (function == nullptr) return;
  char line[1024];
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  if (length < static_cast<int>(sizeof line)) return function(context, line);
  // Names of files and properties may be of any length.
  std::string text(static_cast<std::size_t>(length), '\0');
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  va_end(arguments);
  function(context, text.c_str());
}

}  // namespace kelsdk::io
