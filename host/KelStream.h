#pragma once

#include "host/KelApi.h"

namespace kelsdk {

/// A run of bytes in memory that is written at its end and read from its front. Numbers are
/// little-endian, a text is its length and its characters.
class KEL_API KelStream {
 public:
  KelStream() noexcept = default;
  KelStream(const KelStream&) = delete;
  KelStream& operator=(const KelStream&) = delete;
  ~KelStream();

  unsigned int GetSize() const noexcept { return size_; }

  /// False when there is no memory; nothing is written then.
  bool WriteBytes(const void* bytes, unsigned int count) noexcept;
  bool WriteInteger(unsigned int value) noexcept;
  bool WriteText(const char* text, unsigned int length) noexcept;

  /// False when fewer bytes are left; nothing is read then. Reading moves the read position only.
  bool ReadInteger(unsigned int& value) const noexcept;
  /// The next text, not ended by a zero byte, valid until the stream changes.
  bool ReadText(const char*& text, unsigned int& length) const noexcept;

 private:
  unsigned char* bytes_ = nullptr;
  unsigned int size_ = 0;
  unsigned int capacity_ = 0;
  mutable unsigned int position_ = 0;
};

}  // namespace kelsdk
