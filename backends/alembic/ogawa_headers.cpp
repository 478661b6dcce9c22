#include "backends/alembic/ogawa_headers.h"

#include <utility>

namespace kelsdk::alembic {
namespace {

constexpr std::size_t kObjectHashBytes =
    32;  // behind the child headers: of properties, of children

// The bits of a property header's first word.
constexpr std::uint32_t kKindMask = 0x3;
constexpr std::uint32_t kCompound = 0;
constexpr std::uint32_t kScalar = 1;
constexpr std::uint32_t kScalarLikeArray = 3;
constexpr unsigned kWidthShift = 2;  // 2 bits: 1, 2 or 4 bytes
constexpr unsigned kTypeShift = 4;   // 4 bits
constexpr std::uint32_t kHasTimeSampling = 0x100;
constexpr std::uint32_t kHasChanged = 0x200;
// 0x400 claims that all samples have one element count; writers set and clear it wrongly.
constexpr std::uint32_t kConstant = 0x800;
constexpr unsigned kExtentShift = 12;    // 8 bits
constexpr unsigned kMetadataShift = 20;  // 8 bits
constexpr std::uint32_t kByteMask = 0xff;

std::string_view Text(io::ByteReader& in, std::size_t length) {
  const auto* bytes = reinterpret_cast<const char*>(in.Bytes(length));
  return bytes != nullptr ? std::string_view(bytes, length) : std::string_view();
}

}  // namespace

ObjectHeaders::ObjectHeaders(const std::uint8_t* block, std::size_t size)
    : in_(block, size < kObjectHashBytes ? 0 : size - kObjectHashBytes) {
  if (size < kObjectHashBytes) in_.Fail();
}

bool ObjectHeaders::Next(ObjectRecord& record) {
  if (in_.AtEnd()) return false;
  record.name = Text(in_, in_.U32());
  record.metadata.number = in_.U8();
  const bool isInline = record.metadata.number == MetadataReference::kInline;
  record.metadata.text = isInline ? Text(in_, in_.U32()) : std::string_view();
  return in_.Ok();
}

std::uint32_t PropertyHeaders::Number(unsigned width) {
  switch (width) {
    case 0: return in_.U8();
    case 1: return in_.U16();
    case 2: return in_.U32();
    default: in_.Fail(); return 0;
  }
}

void PropertyHeaders::ReadSampling(std::uint32_t info, unsigned width, Property& property) {
  property.sampleCount = Number(width);
  if ((info & kHasChanged) != 0) {
    property.firstChanged = Number(width);
    property.lastChanged = Number(width);
  } else if ((info & kConstant) == 0 && property.sampleCount > 1) {
    property.firstChanged = 1;
    property.lastChanged = property.sampleCount - 1;
  }
  if ((info & kHasTimeSampling) != 0) property.timeSampling = Number(width);
}

bool PropertyHeaders::Next(PropertyRecord& record) {
  if (in_.AtEnd()) return false;
  const std::uint32_t info = in_.U32();
  const std::uint32_t kind = info & kKindMask;
  const unsigned width = info >> kWidthShift & 3;
  Property& property = record.property = {};
  if (kind != kCompound) {
    property.kind = kind == kScalar ? EPropertyKind::eScalar : EPropertyKind::eArray;
    property.scalarLike = kind == kScalarLikeArray;
    property.type = static_cast<EPlainType>(info >> kTypeShift & 0xf);
    property.extent = static_cast<std::uint8_t>(info >> kExtentShift & kByteMask);
    ReadSampling(info, width, property);
  }
  record.name = Text(in_, Number(width));
  record.metadata.number = static_cast<std::uint8_t>(info >> kMetadataShift & kByteMask);
  const bool isInline = record.metadata.number == MetadataReference::kInline;
  record.metadata.text = isInline ? Text(in_, Number(width)) : std::string_view();
  return in_.Ok();
}

bool ParseTimeSamplings(const std::vector<std::uint8_t>& block,
                        std::vector<TimeSampling>& samplings, io::Error& error) {
  io::ByteReader in(block.data(), block.size());
  while (in.Ok() && !in.AtEnd()) {
    const std::uint32_t maxSamples = in.U32();
    const double period = in.F64();
    const std::uint32_t count = in.U32();
    if (count > in.Left() / sizeof(double)) {
      return error.Set(io::Error::eDamaged, "time sampling %zu claims %u times, %zu bytes are left",
                       samplings.size(), count, in.Left());
    }
    std::vector<double> times(count);
    for (double& time : times) time = in.F64();
    samplings.push_back(TimeSampling::FromStored(period, std::move(times), maxSamples));
  }
  if (in.Ok()) return true;
  return error.Set(io::Error::eDamaged, "time sampling %zu is cut short", samplings.size() - 1);
}

bool ParseMetadataTable(const std::vector<std::uint8_t>& block, std::vector<std::string>& table,
                        io::Error& error) {
  io::ByteReader in(block.data(), block.size());
  while (in.Ok() && !in.AtEnd()) table.emplace_back(Text(in, in.U8()));
  if (in.Ok()) return true;
  return error.Set(io::Error::eDamaged, "entry %zu of the metadata table is cut short",
                   table.size() - 1);
}

}  // namespace kelsdk::alembic
