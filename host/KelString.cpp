#include "host/KelString.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "host/KelMemory.h"

namespace kelsdk {
namespace {

// Characters that fit beside the final zero byte in a KelMalloc block.
constexpr size_t kLongest = UINT_MAX - 1;

int CompareBytes(const KelString& left, const char* right, size_t rightLength) {
  const size_t leftLength = left.GetLen();
  const int order = std::memcmp(left.Buffer(), right, std::min(leftLength, rightLength));
  if (order != 0 || leftLength == rightLength) return order;
  return leftLength < rightLength ? -1 : 1;
}

}  // namespace

KelString::KelString(const char* text) noexcept {
  *this += text;
}

KelString::KelString(const char* text, unsigned int length) noexcept {
  Append(text, length);
}

KelString::KelString(const KelString& other) noexcept {
  *this += other;
}

KelString::KelString(KelString&& other) noexcept
    : text_(std::exchange(other.text_, nullptr)),
      length_(std::exchange(other.length_, 0)),
      valid_(std::exchange(other.valid_, true)) {}

KelString::~KelString() {
  KelFree(text_);
}

KelString& KelString::operator=(const char* text) noexcept {
  return *this = KelString(text);
}

KelString& KelString::operator=(const KelString& other) noexcept {
  if (this != &other) *this = KelString(other);
  return *this;
}

KelString& KelString::operator=(KelString&& other) noexcept {
  std::swap(text_, other.text_);
  std::swap(length_, other.length_);
  std::swap(valid_, other.valid_);
  return *this;
}

KelString& KelString::operator+=(const char* text) noexcept {
  if (text == nullptr) return *this;
  const size_t length = std::strlen(text);
  if (length > kLongest) {
    Invalidate();
  } else {
    Append(text, static_cast<unsigned int>(length));
  }
  return *this;
}

KelString& KelString::operator+=(const KelString& other) noexcept {
  if (!other.valid_) {
    Invalidate();
  } else {
    Append(other.Buffer(), other.length_);
  }
  return *this;
}

void KelString::Clear() noexcept {
  KelFree(text_);
  text_ = nullptr;
  length_ = 0;
  valid_ = true;
}

void KelString::Invalidate() noexcept {
  Clear();
  valid_ = false;
}

void KelString::Append(const char* text, unsigned int length) noexcept {
  if (!valid_ || length == 0) return;
  if (length > kLongest - length_) return Invalidate();
  // A new block rather than a resized one: `text` may point into this string.
  auto* joined = static_cast<char*>(KelMalloc(length_ + length + 1));
  if (joined == nullptr) return Invalidate();
  if (length_ != 0) std::memcpy(joined, text_, length_);
  std::memcpy(joined + length_, text, length);
  joined[length_ + length] = 0;
  KelFree(text_);
  text_ = joined;
  length_ += length;
}

bool KelString::FindAndReplace(const char* find, const char* replaceBy,
                               unsigned int startPosition) noexcept {
  if (find == nullptr || *find == 0 || startPosition >= length_) return false;
  char* found = std::strstr(text_ + startPosition, find);
  if (found == nullptr) return false;
  if (replaceBy == nullptr) replaceBy = "";
  const size_t findLength = std::strlen(find);
  if (findLength == std::strlen(replaceBy)) {
    std::memcpy(found, replaceBy, findLength);
    return true;
  }
  KelString replaced(text_, static_cast<unsigned int>(found - text_));
  replaced += replaceBy;
  replaced += found + findLength;
  *this = std::move(replaced);
  return valid_;
}

KelString KelString::Left(unsigned int count) const noexcept {
  if (count >= length_) return *this;
  return {Buffer(), count};
}

int Compare(const KelString& left, const KelString& right) noexcept {
  return CompareBytes(left, right.Buffer(), right.GetLen());
}

int Compare(const KelString& left, const char* right) noexcept {
  return right != nullptr ? CompareBytes(left, right, std::strlen(right)) : 1;
}

KelString operator+(const KelString& left, const char* right) noexcept {
  KelString joined(left);
  joined += right;
  return joined;
}

KelString operator+(const KelString& left, const KelString& right) noexcept {
  KelString joined(left);
  joined += right;
  return joined;
}

}  // namespace kelsdk
