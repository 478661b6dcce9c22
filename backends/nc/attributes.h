#pragma once

#include <charconv>
#include <cstring>
#include <optional>
#include <pugixml.hpp>
#include <string_view>
#include <system_error>

#include "backends/io/error.h"

namespace kelsdk::nc {

/// Takes a whole number from the front of a text.
template <typename T>
bool TakeNumber(const char** next, const char* end, T* number) {
  const std::from_chars_result result = std::from_chars(*next, end, *number);
  if (result.ec != std::errc()) return false;
  *next = result.ptr;
  return true;
}

inline bool AtWordEnd(const char* next, const char* end) {
  return next == end || *next == ' ' || *next == '\n' || *next == '\t';
}

/// Moves to the next word between spaces and line breaks; false at the end.
inline bool NextWord(const char** next, const char* end) {
  while (*next != end && AtWordEnd(*next, end)) ++*next;
  return *next != end;
}

/// The attributes of one element, each wanted once: the first that is missing, doubled, malformed
/// or unknown becomes the error, and Done tells at the end.
class Attributes {
 public:
  Attributes(const pugi::xml_node& node, io::Error& error) : node_(node), error_(error) {}

  const char* OptionalText(const char* name) {
    const pugi::xml_attribute attribute = node_.attribute(name);
    if (!attribute) return nullptr;
    ++known_;
    return attribute.value();
  }

  const char* Text(const char* name) {
    const char* text = OptionalText(name);
    if (text == nullptr) Fail("the attribute \"%s\" of <%.64s> is missing", name);
    return text;
  }

  template <typename T>
  std::optional<T> Number(const char* name) {
    const char* text = Text(name);
    if (text == nullptr) return std::nullopt;
    const char* const end = text + std::strlen(text);
    T number = 0;
    if (TakeNumber(&text, end, &number) && text == end) return number;
    Fail("the attribute \"%s\" of <%.64s> is no number that fits", name);
    return std::nullopt;
  }

  template <typename T>
  T OptionalNumber(const char* name, T otherwise) {
    return node_.attribute(name) ? Number<T>(name).value_or(otherwise) : otherwise;
  }

  /// True for the second of two words.
  bool Choice(const char* name, const char* first, const char* second) {
    const char* text = Text(name);
    if (text == nullptr) return false;
    const bool isSecond = std::strcmp(text, second) == 0;
    if (!isSecond && std::strcmp(text, first) != 0) {
      Fail("the attribute \"%s\" of <%.64s> has an unknown value", name);
    }
    return isSecond;
  }

  bool Done() {
    int present = 0;
    for (const pugi::xml_attribute& attribute : node_.attributes()) {
      ++present;
      (void)attribute;
    }
    if (!failed_ && present != known_) {
      error_.Set(io::Error::eDamaged, "<%.64s> has an unknown or a doubled attribute",
                 node_.name());
      failed_ = true;
    }
    return !failed_;
  }

 private:
  __attribute__((format(printf, 2, 0))) void Fail(const char* format, const char* name) {
    if (failed_) return;
    failed_ = true;
    error_.Set(io::Error::eDamaged, format, name, node_.name());
  }

  pugi::xml_node node_;
  io::Error& error_;
  int known_ = 0;
  bool failed_ = false;
};

}  // namespace kelsdk::nc
