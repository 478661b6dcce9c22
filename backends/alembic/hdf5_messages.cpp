#include "backends/alembic/hdf5_messages.h"

#include <algorithm>
#include <cstring>

#include "backends/io/checked.h"

namespace kelsdk::alembic {
namespace {

using io::ByteReader;

constexpr std::size_t kLengthBytes = kHdf5LengthBytes;
constexpr unsigned kMostRank = 32;  // chunks have one more, for the bytes of a value
constexpr int kMostNesting = 32;    // of types in types

// How a data set is laid out.
constexpr unsigned kCompact = 0;
constexpr unsigned kContiguous = 1;
constexpr unsigned kChunked = 2;
constexpr unsigned kVirtual = 3;

// Messages that have more rules than the one of their content.
constexpr unsigned kSpace = 0x01;
constexpr unsigned kFileList = 0x07;
constexpr unsigned kLayout = 0x08;
constexpr unsigned kAttribute = 0x0c;
constexpr unsigned kSymbolTable = 0x11;

// Up to version 2 most names take whole times eight bytes.
std::size_t RoundUp(std::size_t size) {
  return (size + 7) / 8 * 8;
}

void SkipName(ByteReader& in, bool rounded) {
  const std::size_t from = in.Position();
  while (in.Ok() && in.U8() != 0) {
  }
  const std::size_t length = in.Position() - from;
  if (rounded) in.Skip(RoundUp(length) - length);
}

// Gives the bytes of one value.
std::uint32_t CheckType(ByteReader& in, int nesting) {
  const std::uint32_t head = in.U32();
  const unsigned version = head >> 4 & 0xf;
  const std::uint32_t bits = head >> 8;
  const std::uint32_t size = in.U32();
  if (version < 1 || version > 3 || nesting > kMostNesting) in.Fail();
  const auto skipWithin = [&](ByteReader& base) { return CheckType(base, nesting + 1); };
  switch (head & 0xf) {
    case 0:                               // integer
    case 4: in.Skip(4); break;            // bits
    case 1: in.Skip(12); break;           // floating point
    case 2: in.Skip(2); break;            // time
    case 3:                               // text
    case 7: break;                        // reference
    case 5: in.Skip(bits & 0xff); break;  // opaque
    case 6:                               // compound
      for (std::uint32_t left = bits & 0xffff; in.Ok() && left > 0; --left) {
        SkipName(in, version < 3);
        std::size_t offsetBytes = 1;
        while (offsetBytes < 4 && size >> 8 * offsetBytes != 0) ++offsetBytes;
        in.Skip(version < 3 ? 4 : offsetBytes);
        if (version == 1) in.Skip(28);  // dimensions
        skipWithin(in);
      }
      break;
    case 8: {  // enumeration
      const std::size_t base = skipWithin(in);
      const std::uint32_t count = bits & 0xffff;
      for (std::uint32_t left = count; in.Ok() && left > 0; --left) SkipName(in, version < 3);
      in.Skip(count * base);
      break;
    }
    case 9: skipWithin(in); break;  // of variable length
    case 10: {                      // array
      const unsigned rank = in.U8();
      if (rank > kMostRank) in.Fail();
      in.Skip(version < 3 ? 3 + 8 * rank : 4 * rank);
      skipWithin(in);
      break;
    }
    default: in.Fail();
  }
  return size;
}

struct Space {
  unsigned rank = 0;
  std::uint64_t count = 0;  // of values
};

Space CheckSpace(ByteReader& in) {
  Space space;
  const unsigned version = in.U8();
  space.rank = in.U8();
  const unsigned flags = in.U8();
  const unsigned kind = in.U8();  // in version 2: scalar, simple, none
  if (version < 1 || version > 2 || space.rank > kMostRank) in.Fail();
  if (version == 1) in.Skip(4);
  space.count = version == 2 && kind == 2 ? 0 : 1;
  for (unsigned i = 0; in.Ok() && i < space.rank; ++i) {
    if (!io::CheckedMultiply(space.count, in.U64(), &space.count)) in.Fail();
  }
  if ((flags & 1) != 0) in.Skip(space.rank * kLengthBytes);  // the most of each dimension
  return space;
}

void CheckAttribute(ByteReader& in) {
  const unsigned version = in.U8();
  in.Skip(1);
  const std::size_t nameBytes = in.U16();
  const std::size_t typeBytes = in.U16();
  const std::size_t spaceBytes = in.U16();
  if (version < 1 || version > 3) in.Fail();
  if (version == 3) in.Skip(1);  // character set
  const auto part = [&](std::size_t size) {
    const std::uint8_t* const bytes = in.Bytes(version == 1 ? RoundUp(size) : size);
    return ByteReader(bytes, bytes != nullptr ? size : 0);
  };
  ByteReader name = part(nameBytes);
  ByteReader type = part(typeBytes);
  ByteReader space = part(spaceBytes);
  SkipName(name, false);
  std::uint64_t bytes = CheckType(type, 0);
  if (!io::CheckedMultiply(CheckSpace(space).count, bytes, &bytes) || bytes > in.Left() ||
      !name.AtEnd() || !type.Ok() || !space.Ok()) {
    in.Fail();
  }
}

void CheckFill(ByteReader& in) {
  const unsigned version = in.U8();
  if (version < 1 || version > 3) in.Fail();
  const unsigned flags = in.U8();
  if (version == 3) {
    if ((flags & 0x20) != 0) in.Skip(in.U32());
    return;
  }
  in.Skip(1);
  const bool defined = in.U8() != 0;
  if (!defined) return;
  const std::int32_t size = in.I32();
  if (size > 0) in.Skip(static_cast<std::size_t>(size));
}

void CheckLink(ByteReader& in) {
  if (in.U8() != 1) in.Fail();
  const unsigned flags = in.U8();
  const unsigned kind = (flags & 0x8) != 0 ? in.U8() : 0;
  if ((flags & 0x4) != 0) in.Skip(8);   // creation order
  if ((flags & 0x10) != 0) in.Skip(1);  // character set
  in.Skip(ReadHdf5Length(in, flags & 3));
  kind == 0 ? in.Skip(kLengthBytes) : in.Skip(in.U16());
}

// Lengths of a chunk are divided by.
void CheckChunkLengths(ByteReader& in, unsigned rank, std::size_t width) {
  if (rank == 0 || rank > kMostRank + 1 || width == 0 || width > 8) in.Fail();
  for (unsigned i = 0; in.Ok() && i < rank; ++i) {
    const std::uint8_t* const bytes = in.Bytes(width);
    if (bytes != nullptr && std::all_of(bytes, bytes + width, [](auto byte) { return byte == 0; }))
      in.Fail();
  }
}

// How chunks are found, from version 4 on.
void CheckChunkIndex(ByteReader& in, unsigned flags) {
  switch (in.U8()) {
    case 1: in.Skip((flags & 2) != 0 ? kLengthBytes + 4 : 0); break;
    case 2: break;
    case 3: in.Skip(1); break;
    case 4: in.Skip(5); break;
    case 5: in.Skip(6); break;
    default: in.Fail();
  }
  in.Skip(kLengthBytes);
}

void CheckOldLayout(ByteReader& in, Hdf5Claims& claims) {
  const unsigned rank = in.U8();
  const unsigned kind = in.U8();
  in.Skip(5);
  if (rank > kMostRank + 1 || kind > kChunked) in.Fail();
  if (kind == kChunked) {
    claims.chunkRank = rank;
    claims.chunkTree = in.U64();
    return CheckChunkLengths(in, rank, 4);
  }
  if (kind == kContiguous) in.Skip(kLengthBytes);
  in.Skip(std::size_t{4} * rank);
  if (kind == kCompact) in.Skip(in.U32());
}

void CheckChunks(ByteReader& in, unsigned version, Hdf5Claims& claims) {
  const unsigned flags = version == 4 ? in.U8() : 0;
  claims.chunkRank = in.U8();
  if (version == 3) claims.chunkTree = in.U64();
  CheckChunkLengths(in, claims.chunkRank, version == 3 ? 4 : in.U8());
  if (version == 4) CheckChunkIndex(in, flags);
}

void CheckLayout(ByteReader& in, Hdf5Claims& claims) {
  const unsigned version = in.U8();
  if (version < 1 || version > 4) in.Fail();
  if (version < 3) return CheckOldLayout(in, claims);
  switch (in.U8()) {
    case kCompact: in.Skip(in.U16()); break;
    case kContiguous: in.Skip(2 * kLengthBytes); break;
    case kChunked: CheckChunks(in, version, claims); break;
    default: in.Fail();
  }
}

void CheckFilters(ByteReader& in) {
  constexpr unsigned kFirstNamed = 256;
  const unsigned version = in.U8();
  const unsigned count = in.U8();
  if (version < 1 || version > 2) in.Fail();
  if (version == 1) in.Skip(6);
  for (unsigned i = 0; in.Ok() && i < count; ++i) {
    const unsigned filter = in.U16();
    const std::size_t nameBytes = version == 1 || filter >= kFirstNamed ? in.U16() : 0;
    in.Skip(2);
    const std::size_t parameters = in.U16();
    const std::uint8_t* const name = in.Bytes(nameBytes);
    if (nameBytes != 0 && name != nullptr && std::memchr(name, 0, nameBytes) == nullptr) in.Fail();
    in.Skip(4 * (version == 1 ? parameters + parameters % 2 : parameters));
  }
}

void CheckLinkInfo(ByteReader& in) {
  in.Skip(1);
  const unsigned flags = in.U8();
  in.Skip(((flags & 1) != 0 ? 8 : 0) + ((flags & 2) != 0 ? 3 : 2) * kLengthBytes);
}

void CheckAttributeInfo(ByteReader& in) {
  in.Skip(1);
  const unsigned flags = in.U8();
  in.Skip(((flags & 1) != 0 ? 2 : 0) + ((flags & 2) != 0 ? 3 : 2) * kLengthBytes);
}

void CheckGroupInfo(ByteReader& in) {
  in.Skip(1);
  const unsigned flags = in.U8();
  in.Skip(((flags & 1) != 0 ? 4 : 0) + ((flags & 2) != 0 ? 4 : 0));
}

void TakeSymbolTable(ByteReader& in, Hdf5Claims& claims) {
  claims.groupTree = in.U64();
  claims.groupHeap = in.U64();
}

// Gives what the message is called. Others are not looked at, by libhdf5 neither.
const char* CheckContent(unsigned kind, ByteReader& in, Hdf5Claims& claims) {
  switch (kind) {
    case kSpace: claims.spaceRank = CheckSpace(in).rank; return "data space";
    case 0x02: CheckLinkInfo(in); return "link info";
    case 0x03: CheckType(in, 0); return "data type";
    case 0x04: in.Skip(in.U32()); return "old fill value";
    case 0x05: CheckFill(in); return "fill value";
    case 0x06: CheckLink(in); return "link";
    case kLayout: CheckLayout(in, claims); return "layout";
    case 0x0a: CheckGroupInfo(in); return "group info";
    case 0x0b: CheckFilters(in); return "filter";
    case kAttribute: CheckAttribute(in); return "attribute";
    case 0x0d: SkipName(in, false); return "comment";
    case 0x0e: in.Skip(14); return "old time";
    case kSymbolTable: TakeSymbolTable(in, claims); return "symbol table";
    case 0x12: in.Skip(8); return "time";
    case 0x15: CheckAttributeInfo(in); return "attribute info";
    case 0x16: in.Skip(5); return "reference count";
    default: return "message";
  }
}

// Whether an attribute's type or space is a message of another object.
bool HasSharedParts(ByteReader attribute) {
  return attribute.U8() > 1 && (attribute.U8() & 3) != 0;
}

bool IsVirtual(ByteReader layout) {
  return layout.U8() > 3 && layout.U8() == kVirtual;
}

}  // namespace

std::uint64_t ReadHdf5Length(ByteReader& in, unsigned width) {
  switch (width) {
    case 0: return in.U8();
    case 1: return in.U16();
    case 2: return in.U32();
    default: return in.U64();
  }
}

bool CheckHdf5Message(unsigned kind, ByteReader message, Hdf5Claims& claims, io::Error& error) {
  if (kind == kAttribute && HasSharedParts(message))
    return error.Set(io::Error::eUnsupported, "an attribute's type is an object of its own");
  if (kind == kFileList || (kind == kLayout && IsVirtual(message)))
    return error.Set(io::Error::eUnsupported, "values that are kept elsewhere");
  // Of two, libhdf5 would take the first and this the last.
  const bool single = kind == kSpace || kind == kLayout || kind == kSymbolTable;
  if (single && (claims.seen >> kind & 1) != 0) message.Fail();
  if (single) claims.seen |= 1U << kind;
  const char* const name = CheckContent(kind, message, claims);
  return message.Ok() || error.Set(io::Error::eDamaged, "has a damaged %s", name);
}

}  // namespace kelsdk::alembic
