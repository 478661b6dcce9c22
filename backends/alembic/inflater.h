#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>

#include "backends/io/error.h"

namespace kelsdk::alembic {

/// Unpacks deflated bytes, with memory of its own that is kept from one call to the next.
class Inflater {
 public:
  Inflater() = default;
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;
  ~Inflater();

  /// Unpacks what must become exactly `size` bytes, checksum included, and hands out the first
  /// `wanted` of them.
  bool Inflate(const std::uint8_t* packed, std::size_t packedSize, std::uint8_t* bytes,
               std::size_t wanted, std::uint64_t size, io::Error& error);

 private:
  z_stream stream_ = {};
  bool ready_ = false;
};

}  // namespace kelsdk::alembic
