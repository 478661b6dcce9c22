#include "backends/nc/names.h"

#include <charconv>

namespace kelsdk::nc {
namespace {

constexpr std::string_view kPartialEnding = ".part";

void AppendNumber(std::string* text, int number) {
  char digits[12];
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  text->append(digits, end);
}

// Takes digits, with a sign where one is allowed, from the front.
bool SkipNumber(std::string_view* text, bool maybeSigned) {
  std::string_view rest = *text;
  if (maybeSigned && rest.starts_with('-')) rest.remove_prefix(1);
  const std::size_t digits = rest.find_first_not_of("0123456789");
  if (digits == 0 || rest.empty()) return false;
  rest.remove_prefix(digits == std::string_view::npos ? rest.size() : digits);
  *text = rest;
  return true;
}

bool Skip(std::string_view* text, std::string_view prefix) {
  if (!text->starts_with(prefix)) return false;
  text->remove_prefix(prefix.size());
  return true;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

bool MakeCacheName(const char* folder, const char* base, CacheName* name, io::Error& error) {
  if (folder == nullptr || base == nullptr || *base == 0) {
    return error.Set(io::Error::eRefused, "the cache has no name");
  }
  const std::string_view text = base;
  if (text.find('/') != std::string_view::npos || text == "." || text == "..") {
    return error.Set(io::Error::eRefused, "the base name is not that of a file");
  }
  name->base = text;
  name->folder = *folder != 0 ? folder : "./";
  if (!name->folder.ends_with('/')) name->folder += '/';
  return true;
}

void DataFileName(const std::string& base, const FileLayout& layout, std::int32_t tick,
                  std::string* name) {
  name->assign(base);
  if (layout.isPerFrame) {
    const int divisor = layout.ticksPerFrame > 0 ? layout.ticksPerFrame : 1;
    int frame = tick / divisor;
    int rest = tick % divisor;
    if (rest < 0) {
      rest += divisor;
      --frame;
    }
    name->append("Frame");
    AppendNumber(name, frame);
    if (rest != 0) {
      name->append("Tick");
      AppendNumber(name, rest);
    }
  }
  name->append(".").append(layout.Tag());
}

bool IsDataFileName(std::string_view name, const std::string& base) {
  if (!Skip(&name, base)) return false;
  if (Skip(&name, "Frame")) {
    if (!SkipNumber(&name, true)) return false;
    if (Skip(&name, "Tick") && !SkipNumber(&name, false)) return false;
  }
  return name == ".ncx" || name == ".ncc";
}

bool IsDataFileName(std::string_view name, const std::string& base, const FileLayout& layout) {
  const std::string_view tag = layout.Tag();
  const bool isSingle = name.size() == base.size() + 1 + tag.size();
  return IsDataFileName(name, base) && name.ends_with(tag) && isSingle != layout.isPerFrame;
}

std::string RenamedDataFile(const std::string& name, const std::string& base,
                            const std::string& newBase) {
  return newBase + name.substr(base.size());
}

std::string PartialFolderName(const std::string& base, const Identity& identity) {
  return base + "." + FormatIdentity(identity) + std::string(kPartialEnding);
}

std::optional<Identity> ParsePartialFolderName(std::string_view name, const std::string& base) {
  if (!Skip(&name, base) || !Skip(&name, ".") || !name.ends_with(kPartialEnding)) {
    return std::nullopt;
  }
  name.remove_suffix(kPartialEnding.size());
  return ParseIdentity(name);
}

std::optional<std::string> BaseOfPartialFolder(std::string_view name) {
  if (!name.ends_with(kPartialEnding)) return std::nullopt;
  name.remove_suffix(kPartialEnding.size());
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || !ParseIdentity(name.substr(dot + 1))) {
    return std::nullopt;
  }
  return std::string(name.substr(0, dot));
}

std::string FormatIdentity(const Identity& identity) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * identity.size());
  for (const std::uint8_t byte : identity) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::optional<Identity> ParseIdentity(std::string_view text) {
  Identity identity = {};
  if (text.size() != 2 * identity.size()) return std::nullopt;
  for (std::size_t i = 0; i < identity.size(); ++i) {
    const int high = HexDigit(text[2 * i]);
    const int low = HexDigit(text[2 * i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    identity[i] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return identity;
}

}  // namespace kelsdk::nc
