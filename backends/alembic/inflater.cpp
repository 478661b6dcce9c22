#include "backends/alembic/inflater.h"

#include <algorithm>
#include <limits>

namespace kelsdk::alembic {
namespace {

// zlib counts what it is given in 32 bits.
uInt Some(std::uint64_t count) {
  return static_cast<uInt>(std::min<std::uint64_t>(count, std::numeric_limits<uInt>::max()));
}

}  // namespace

Inflater::~Inflater() {
  if (ready_) inflateEnd(&stream_);
}

bool Inflater::Inflate(const std::uint8_t* packed, std::size_t packedSize, std::uint8_t* bytes,
                       std::size_t wanted, std::uint64_t size, io::Error& error) {
  if (!ready_ && inflateInit(&stream_) != Z_OK)
    return error.Set(io::Error::eNoMemory, "not enough memory");
  ready_ = true;
  inflateReset(&stream_);
  Bytef rest[4096];  // for what nobody wants, and the checksum
  std::uint64_t done = 0;
  std::size_t taken = 0;
  int result = Z_OK;
  while (result == Z_OK && done <= size) {
    const bool isWanted = done < wanted;
    stream_.next_in = const_cast<Bytef*>(packed + taken);
    stream_.avail_in = Some(packedSize - taken);
    stream_.next_out = isWanted ? bytes + done : rest;
    stream_.avail_out = isWanted ? Some(wanted - done) : sizeof rest;
    const uInt input = stream_.avail_in;
    const uInt room = stream_.avail_out;
    result = inflate(&stream_, Z_NO_FLUSH);
    taken += input - stream_.avail_in;
    done += room - stream_.avail_out;
  }
  if (result == Z_STREAM_END && done == size) return true;
  return error.Set(io::Error::eDamaged, "deflated values that cannot be unpacked");
}

}  // namespace kelsdk::alembic
