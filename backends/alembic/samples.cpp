#include "backends/alembic/samples.h"

#include "backends/io/checked.h"
#include "backends/io/endian.h"

namespace kelsdk::alembic {
namespace {

using Ull = unsigned long long;  // for messages

bool IsCodePoint(std::uint32_t code) {
  return code <= 0x10ffff && (code < 0xd800 || code > 0xdfff);
}

bool CountStringElements(const Property& property, std::uint64_t valueBytes,
                         const Dimensions& dimensions, std::uint64_t& elements, io::Error& error) {
  if (dimensions.rank == 0)
    return error.Set(io::Error::eDamaged, "an array of strings has no dimensions");
  std::uint64_t strings = 0;
  if (dimensions.Product(elements) &&
      io::CheckedMultiply(elements, std::uint64_t{property.extent}, &strings) &&
      strings <= valueBytes / PlainTypeSize(property.type)) {
    return true;
  }
  return error.Set(io::Error::eDamaged, "more strings claimed than %llu bytes hold",
                   static_cast<Ull>(valueBytes));
}

}  // namespace

bool CheckSampleSize(const Property& property, std::uint64_t valueBytes, io::Error& error) {
  if (!IsNumeric(property.type) || property.kind == EPropertyKind::eArray) {
    const std::size_t unit =
        IsNumeric(property.type) ? property.ElementSize() : PlainTypeSize(property.type);
    if (valueBytes % unit == 0) return true;
    return error.Set(io::Error::eDamaged, "a sample of %llu bytes, elements are of %zu bytes",
                     static_cast<Ull>(valueBytes), unit);
  }
  if (valueBytes == property.ElementSize()) return true;
  return error.Set(io::Error::eDamaged, "a scalar of %llu bytes, %zu are needed",
                   static_cast<Ull>(valueBytes), property.ElementSize());
}

bool CountElements(const Property& property, std::uint64_t valueBytes, const Dimensions& dimensions,
                   std::uint64_t& elements, io::Error& error) {
  elements = 0;
  if (valueBytes == 0) return true;
  if (!IsNumeric(property.type))
    return CountStringElements(property, valueBytes, dimensions, elements, error);
  elements = valueBytes / property.ElementSize();
  if (dimensions.rank == 0) return true;
  std::uint64_t product = 0;
  if (dimensions.Product(product) && product == elements) return true;
  return error.Set(io::Error::eDamaged, "dimensions of %llu elements in all, %llu are stored",
                   static_cast<Ull>(product), static_cast<Ull>(elements));
}

bool CheckStrings(EPlainType type, const std::uint8_t* bytes, std::size_t size, std::uint64_t count,
                  io::Error& error) {
  const bool wide = type == EPlainType::eWstring;
  const std::size_t unit = PlainTypeSize(type);
  std::uint64_t ended = 0;
  std::uint32_t code = 0;
  for (std::size_t at = 0; at < size; at += unit) {
    code = wide ? io::LoadLittle<std::uint32_t>(bytes + at) : bytes[at];
    if (!IsCodePoint(code)) return error.Set(io::Error::eDamaged, "code point %x", code);
    if (code == 0) ++ended;
  }
  if (code != 0) return error.Set(io::Error::eDamaged, "the last string has no end");
  if (ended == count) return true;
  return error.Set(io::Error::eDamaged, "%llu strings claimed, %llu stored",
                   static_cast<Ull>(count), static_cast<Ull>(ended));
}

}  // namespace kelsdk::alembic
