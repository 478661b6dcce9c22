#pragma once

#include <iosfwd>
#include <type_traits>

#include "host/KelApi.h"

namespace kelsdk {

/// An owned string of 8-bit characters (UTF-8 by custom), its memory from KelMalloc.
///
/// Nothing throws. When memory runs out the string becomes empty and invalid (IsValid() false), and
/// every string made from an invalid one is invalid too, so that a path that was built in several
/// steps needs one test at its end. Clear() and assignment make it valid again.
class KEL_API KelString {
 public:
  KelString() noexcept = default;
  KelString(const char* text) noexcept;  // NOLINT(google-explicit-constructor): given interface
  KelString(const char* text, unsigned int length) noexcept;
  KelString(const KelString& other) noexcept;
  KelString(KelString&& other) noexcept;
  ~KelString();

  KelString& operator=(const char* text) noexcept;
  KelString& operator=(const KelString& other) noexcept;
  KelString& operator=(KelString&& other) noexcept;

  KelString& operator+=(const char* text) noexcept;
  KelString& operator+=(const KelString& other) noexcept;

  /// The characters, ended by a zero byte; valid until the string changes.
  char* Buffer() noexcept { return text_ != nullptr ? text_ : &terminator_; }
  const char* Buffer() const noexcept { return text_ != nullptr ? text_ : &terminator_; }
  operator const char*() const noexcept { return Buffer(); }  // NOLINT(google-explicit-constructor)
  /// By way of the pointer every string would be true; IsEmpty() or IsValid() tells what is meant.
  template <typename T, typename = std::enable_if_t<std::is_same_v<T, bool>>>
  operator T() const = delete;  // NOLINT(google-explicit-constructor)

  /// The number of characters (bytes) before the final zero byte.
  unsigned int GetLen() const noexcept { return length_; }
  bool IsEmpty() const noexcept { return length_ == 0; }

  /// False when an allocation failed while this string was made.
  bool IsValid() const noexcept { return valid_; }

  void Clear() noexcept;

  /// Replaces the first occurrence of `find` at or after `startPosition` by `replaceBy`; false when
  /// there is none, when `find` is empty or when memory runs out.
  bool FindAndReplace(const char* find, const char* replaceBy, unsigned int startPosition) noexcept;

  /// The first `count` characters, or all of them when there are fewer.
  KelString Left(unsigned int count) const noexcept;

 private:
  void Append(const char* text, unsigned int length) noexcept;
  void Invalidate() noexcept;

  char* text_ = nullptr;
  unsigned int length_ = 0;
  bool valid_ = true;
  char terminator_ = 0;
};

/// Below, at or above 0 as `left` comes before, is equal to or comes after `right` in the order of
/// their bytes, taken as unsigned. A null pointer is equal to no string and comes before all.
KEL_API int Compare(const KelString& left, const KelString& right) noexcept;
KEL_API int Compare(const KelString& left, const char* right) noexcept;

// NOLINTBEGIN(bugprone-macro-parentheses): an operator takes none.
#define KEL_STRING_COMPARISON(op)                                                   \
  inline bool operator op(const KelString& left, const KelString& right) noexcept { \
    return Compare(left, right) op 0;                                               \
  }                                                                                 \
  inline bool operator op(const KelString& left, const char* right) noexcept {      \
    return Compare(left, right) op 0;                                               \
  }                                                                                 \
  inline bool operator op(const char* left, const KelString& right) noexcept {      \
    return 0 op Compare(right, left);                                               \
  }
// NOLINTEND(bugprone-macro-parentheses)
KEL_STRING_COMPARISON(==)
KEL_STRING_COMPARISON(!=)
KEL_STRING_COMPARISON(<)
KEL_STRING_COMPARISON(<=)
KEL_STRING_COMPARISON(>)
KEL_STRING_COMPARISON(>=)
#undef KEL_STRING_COMPARISON

KEL_API KelString operator+(const KelString& left, const char* right) noexcept;
KEL_API KelString operator+(const KelString& left, const KelString& right) noexcept;

// Characters, numbers and differences would move the pointer that a string converts to.
template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
KelString operator+(const KelString& left, T right) = delete;
template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
KelString operator+(T left, const KelString& right) = delete;
template <typename T>
KelString operator-(const KelString& left, const T& right) = delete;

template <typename Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& out,
                                             const KelString& text) {
  return out << text.Buffer();
}

}  // namespace kelsdk
