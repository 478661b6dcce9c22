#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "backends/io/endian.h"

namespace kelsdk::io {

/// A read position in a run of bytes that somebody else keeps. A read past the end fails, and from
/// then on every read gives zero and moves nothing, so a header is read in one straight run and
/// Ok() is asked once at its end. Numbers are little-endian unless the name says otherwise.
class ByteReader {
 public:
  ByteReader(const void* bytes, std::size_t size)
      : bytes_(static_cast<const std::uint8_t*>(bytes)), size_(size) {}

  bool Ok() const { return ok_; }
  bool AtEnd() const { return ok_ && position_ == size_; }
  std::size_t Position() const { return position_; }
  std::size_t Left() const { return ok_ ? size_ - position_ : 0; }
  void Fail() { ok_ = false; }

  std::uint8_t U8() { return Number<std::uint8_t>(); }
  std::uint16_t U16() { return Number<std::uint16_t>(); }
  std::uint32_t U32() { return Number<std::uint32_t>(); }
  std::uint64_t U64() { return Number<std::uint64_t>(); }
  std::int32_t I32() { return Number<std::int32_t>(); }
  float F32() { return Number<float>(); }
  double F64() { return Number<double>(); }
  std::uint16_t U16Big() {
    const unsigned high = U8();
    return static_cast<std::uint16_t>(high << 8 | U8());
  }

  /// The next `count` bytes, or null.
  const std::uint8_t* Bytes(std::size_t count) {
    if (!ok_ || count > size_ - position_) {
      ok_ = false;
      return nullptr;
    }
    const std::uint8_t* bytes = bytes_ + position_;
    position_ += count;
    return bytes;
  }

  /// Takes as many bytes as `expected` has; true when they are equal to it.
  bool Match(const void* expected, std::size_t count) {
    const std::uint8_t* bytes = Bytes(count);
    return bytes != nullptr && std::memcmp(bytes, expected, count) == 0;
  }

  void Skip(std::size_t count) { Bytes(count); }

 private:
  template <typename T>
  T Number() {
    const std::uint8_t* bytes = Bytes(sizeof(T));
    return bytes != nullptr ? LoadLittle<T>(bytes) : T{};
  }

  const std::uint8_t* bytes_;
  std::size_t size_;
  std::size_t position_ = 0;
  bool ok_ = true;
};

}  // namespace kelsdk::io
