#include "backends/nc/report.h"

#include <cstdarg>
#include <cstdio>

namespace kelsdk::nc {

void Report::Say(const char* format, ...) const {
  if (function == nullptr) return;
  char line[1024];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  function(context, line);
}

}  // namespace kelsdk::nc
