#include "tools/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>

namespace kelcache {
namespace {

struct Character {
  char32_t code = 0;
  size_t bytes = 0;  // 0: the text does not begin with a whole character of UTF-8
};

Character FirstOf(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  const auto bytes = static_cast<size_t>(std::countl_one(lead));
  if (bytes < 2 || bytes > 4 || bytes > text.size()) return {};
  char32_t code = lead & (0x7fU >> bytes);
  for (size_t i = 1; i < bytes; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return {};
    code = code << 6 | (byte(i) & 0x3fU);
  }
  constexpr char32_t kLeast[] = {0x80, 0x800, 0x10000};  // a longer form of a lesser one hides it
  const bool surrogate = code >= 0xd800 && code < 0xe000;
  if (code < kLeast[bytes - 2] || surrogate || code > 0x10ffff) return {};
  return {code, bytes};
}

bool IsControl(char32_t code) {
  return code < 0x20 || (code >= 0x7f && code < 0xa0);
}

}  // namespace

bool IsTerminal(std::FILE* stream) {
  return ::isatty(::fileno(stream)) == 1;
}

unsigned int ColumnsOf(std::FILE* stream) {
  unsigned int columns = 0;
  if (const char* words = std::getenv("COLUMNS")) {
    std::from_chars(words, words + std::strlen(words), columns);
  }
  struct winsize window = {};
  if (::ioctl(::fileno(stream), TIOCGWINSZ, &window) == 0 && window.ws_col != 0) {
    columns = columns == 0 ? window.ws_col : std::min<unsigned int>(columns, window.ws_col);
  }
  return columns != 0 ? columns : 80;
}

std::string Printable(std::string_view text) {
  std::string printable;
  while (!text.empty()) {
    const Character first = FirstOf(text);
    const size_t bytes = std::max<size_t>(1, first.bytes);
    if (first.bytes != 0 && !IsControl(first.code)) {
      printable.append(text.substr(0, bytes));
    } else {
      for (const char byte : text.substr(0, bytes)) {
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(byte));
        printable += escape;
      }
    }
    text.remove_prefix(bytes);
  }
  return printable;
}

unsigned int WidthOf(std::string_view printable) {
  constexpr char32_t kFirstWide = 0x1100;
  unsigned int width = 0;
  while (!printable.empty()) {
    const Character first = FirstOf(printable);
    width += first.code >= kFirstWide ? 2 : 1;
    printable.remove_prefix(std::max<size_t>(1, first.bytes));
  }
  return width;
}

std::string_view TailOf(std::string_view printable, unsigned int columns) {
  while (WidthOf(printable) > columns) {
    printable.remove_prefix(std::max<size_t>(1, FirstOf(printable).bytes));
  }
  return printable;
}

void PrintLine(std::FILE* stream, const std::string& line) {
  const std::string text = (IsTerminal(stream) ? Printable(line) : line) + '\n';
  std::fwrite(text.data(), 1, text.size(), stream);
}

void PrintError(const std::string& line) {
  PrintLine(stderr, "kelcache: " + line);
}

}  // namespace kelcache
