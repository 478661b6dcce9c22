#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "backends/alembic/hdf5_messages.h"
#include "backends/alembic/hdf5_structures.h"

namespace kelsdk::alembic {

/// Reads the headers of objects before libhdf5 does: that one takes their word for how long names,
/// types, values and tables are, and goes beyond what holds them. What passes keeps to its length.
/// Each header is read once. Throws std::bad_alloc.
class Hdf5Headers {
 public:
  /// Both outlive it; `cache` serves `file`, which is open when it is used.
  Hdf5Headers(const io::InputFile& file, BlockCache& cache) : structures_(file, cache) {}

  /// The superblock and the header of the root group. False for what is damaged or not served.
  bool CheckContainer(io::Error& error);

  /// The header of the object at an address, in all its pieces.
  bool CheckObject(std::uint64_t address, io::Error& error);

 private:
  struct Piece {
    std::uint64_t address;
    std::uint64_t size;
  };

  bool ReadPrefix(io::Error& error);
  bool CheckPiece(io::Error& error);
  bool CheckMessage(unsigned kind, unsigned flags, io::ByteReader message, io::Error& error);
  bool CheckClaims(io::Error& error);
  bool Refuse(const char* what, io::Error& error) const;

  Hdf5Structures structures_;
  std::unordered_set<std::uint64_t> checked_;
  // Of the header being read:
  std::uint64_t address_ = 0;
  unsigned version_ = 0;
  unsigned flags_ = 0;
  std::size_t leading_ = 0;    // bytes before the messages of its next piece
  std::size_t trailing_ = 0;   // and behind them
  std::vector<Piece> pieces_;  // still to be read
  std::vector<std::uint8_t> bytes_;
  Hdf5Claims claims_;
};

}  // namespace kelsdk::alembic
