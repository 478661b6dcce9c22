#include "backends/alembic/hdf5_headers.h"

namespace kelsdk::alembic {
namespace {

using io::ByteReader;
using Ull = unsigned long long;  // for messages

constexpr std::uint64_t kMostPrefix = 34;
constexpr std::size_t kSignatureBytes = 4;  // of version 2
constexpr std::size_t kChecksumBytes = 4;
constexpr unsigned kContinuation = 0x10;  // a message
constexpr unsigned kKeptElsewhere = 0x2;  // a flag of messages

// The flags of a header of version 2.
constexpr unsigned kSizeWidth = 0x3;
constexpr unsigned kOrderedMessages = 0x4;
constexpr unsigned kAttributeLimits = 0x10;
constexpr unsigned kTimes = 0x20;

}  // namespace

bool Hdf5Headers::CheckContainer(io::Error& error) {
  return structures_.ReadSuperblock(error) && CheckObject(structures_.superblock().root, error);
}

bool Hdf5Headers::Refuse(const char* what, io::Error& error) const {
  return error.Set(io::Error::eDamaged, "the object header at %llu %s", static_cast<Ull>(address_),
                   what);
}

bool Hdf5Headers::CheckObject(std::uint64_t address, io::Error& error) {
  if (checked_.contains(address)) return true;
  address_ = address;
  structures_.Begin();
  if (!ReadPrefix(error)) return false;
  while (!pieces_.empty()) {
    const Piece piece = pieces_.back();
    pieces_.pop_back();
    if (!structures_.Read("an object header", piece.address, piece.size, bytes_, error) ||
        !CheckPiece(error)) {
      return false;
    }
  }
  if (!CheckClaims(error)) return false;
  checked_.insert(address);
  structures_.Keep();
  return true;
}

// Leaves the first piece to be read: the prefix and messages behind it.
bool Hdf5Headers::ReadPrefix(io::Error& error) {
  pieces_.clear();
  claims_ = {};
  if (!structures_.Peek(address_, kMostPrefix, bytes_, error)) return false;
  ByteReader in(bytes_.data(), bytes_.size());
  std::uint64_t size = 0;
  if (in.Match("OHDR", kSignatureBytes)) {
    version_ = in.U8();
    flags_ = in.U8();
    if ((flags_ & kTimes) != 0) in.Skip(16);
    if ((flags_ & kAttributeLimits) != 0) in.Skip(4);
    size = ReadHdf5Length(in, flags_ & kSizeWidth);
    trailing_ = kChecksumBytes;
    if (version_ != 2) in.Fail();
  } else {
    in = ByteReader(bytes_.data(), bytes_.size());
    version_ = in.U8();
    in.Skip(7);
    size = in.U32();
    in.Skip(4);
    trailing_ = 0;
    if (version_ != 1) in.Fail();
  }
  leading_ = in.Position();
  if (!in.Ok()) return Refuse("is none", error);
  if (size > structures_.superblock().end) return Refuse("is longer than the archive", error);
  pieces_.push_back({address_, leading_ + size + trailing_});
  return true;
}

bool Hdf5Headers::CheckPiece(io::Error& error) {
  const bool ordered = version_ == 2 && (flags_ & kOrderedMessages) != 0;
  const std::size_t messageHeader = version_ == 1 ? 8 : ordered ? 6 : 4;
  if (bytes_.size() < leading_ + messageHeader + trailing_)
    return Refuse("has a piece without a message", error);
  ByteReader in(bytes_.data(), bytes_.size() - trailing_);
  in.Skip(leading_);
  leading_ = version_ == 2 ? kSignatureBytes : 0;  // of the pieces that follow
  while (in.Left() >= messageHeader) {
    const unsigned kind = version_ == 1 ? in.U16() : in.U8();
    const std::size_t size = in.U16();
    const unsigned flags = in.U8();
    in.Skip(version_ == 1 ? 3 : ordered ? 2 : 0);
    const std::uint8_t* const bytes = in.Bytes(size);
    if (bytes == nullptr) return Refuse("holds less than a message claims", error);
    if (!CheckMessage(kind, flags, ByteReader(bytes, size), error)) return false;
  }
  // In version 2 a gap may be left that is too short for a message.
  return version_ == 2 || in.AtEnd() || Refuse("ends within a message", error);
}

bool Hdf5Headers::CheckMessage(unsigned kind, unsigned flags, ByteReader message,
                               io::Error& error) {
  if (kind == kContinuation) {
    const std::uint64_t address = message.U64();
    const std::uint64_t size = message.U64();
    pieces_.push_back({address, size});
    return message.Ok() || Refuse("goes on nowhere", error);
  }
  if ((flags & kKeptElsewhere) != 0)
    return error.Set(io::Error::eUnsupported, "a part of an object that is one of its own");
  if (CheckHdf5Message(kind, message, claims_, error)) return true;
  if (error.kind() != io::Error::eDamaged) return false;
  const io::Error why = error;
  return Refuse(why.text(), error);
}

// What the messages claim together.
bool Hdf5Headers::CheckClaims(io::Error& error) {
  if (claims_.chunkRank != 0 && claims_.chunkRank != claims_.spaceRank + 1)
    return Refuse("has chunks of another rank than its data space", error);
  if (claims_.chunkTree != kHdf5Nowhere &&
      !structures_.CheckChunks(claims_.chunkTree, claims_.chunkRank, error)) {
    return false;
  }
  return (claims_.groupTree == kHdf5Nowhere && claims_.groupHeap == kHdf5Nowhere) ||
         structures_.CheckGroup(claims_.groupTree, claims_.groupHeap, error);
}

}  // namespace kelsdk::alembic
