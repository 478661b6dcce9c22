#include "host/KelStream.h"

#include <climits>
#include <cstring>

#include "host/KelMemory.h"

namespace kelsdk {
namespace {

constexpr unsigned int kIntegerSize = 4;

}  // namespace

KelStream::~KelStream() {
  KelFree(bytes_);
}

bool KelStream::WriteBytes(const void* bytes, unsigned int count) noexcept {
  if (count > UINT_MAX - size_) return false;
  if (size_ + count > capacity_) {
    const unsigned int wanted = size_ + count;
    const unsigned int grown = wanted > UINT_MAX / 2 ? UINT_MAX : wanted * 2;
    auto* block = static_cast<unsigned char*>(KelRealloc(bytes_, grown));
    if (block == nullptr) return false;
    bytes_ = block;
    capacity_ = grown;
  }
  if (count != 0) std::memcpy(bytes_ + size_, bytes, count);
  size_ += count;
  return true;
}

bool KelStream::WriteInteger(unsigned int value) noexcept {
  unsigned char bytes[kIntegerSize];
  for (unsigned int i = 0; i < kIntegerSize; ++i) {
    bytes[i] = static_cast<unsigned char>(value >> (8 * i));
  }
  return WriteBytes(bytes, kIntegerSize);
}

bool KelStream::WriteText(const char* text, unsigned int length) noexcept {
  return WriteInteger(length) && WriteBytes(text, length);
}

bool KelStream::ReadInteger(unsigned int& value) const noexcept {
  if (size_ - position_ < kIntegerSize) return false;
  value = 0;
  for (unsigned int i = 0; i < kIntegerSize; ++i) {
    value |= static_cast<unsigned int>(bytes_[position_ + i]) << (8 * i);
  }
  position_ += kIntegerSize;
  return true;
}

bool KelStream::ReadText(const char*& text, unsigned int& length) const noexcept {
  const unsigned int start = position_;
  unsigned int count = 0;
  if (!ReadInteger(count)) return false;
  if (size_ - position_ < count) {
    position_ = start;
    return false;
  }
  text = bytes_ != nullptr ? reinterpret_cast<const char*>(bytes_ + position_) : "";
  length = count;
  position_ += count;
  return true;
}

}  // namespace kelsdk
