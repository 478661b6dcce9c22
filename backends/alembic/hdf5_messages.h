#pragma once

#include <cstdint>

#include "backends/io/byte_reader.h"
#include "backends/io/error.h"

namespace kelsdk::alembic {

/// Of lengths and addresses: no archive has others.
constexpr std::size_t kHdf5LengthBytes = 8;
constexpr std::uint64_t kHdf5Nowhere = ~std::uint64_t{0};

/// A length of 1, 2, 4 or 8 bytes; `width` counts them from 0.
std::uint64_t ReadHdf5Length(io::ByteReader& in, unsigned width);

/// What the messages of an object claim of each other and of what lies outside of its header.
struct Hdf5Claims {
  unsigned seen = 0;  ///< a bit for each kind of message of which there can be but one
  unsigned spaceRank = 0;
  unsigned chunkRank = 0;                  ///< 0: not in chunks
  std::uint64_t chunkTree = kHdf5Nowhere;  ///< their index, where that is a tree
  std::uint64_t groupTree = kHdf5Nowhere;  ///< of a group with a symbol table
  std::uint64_t groupHeap = kHdf5Nowhere;
};

/// Looks at the content of a message of an object header: whatever libhdf5 reads of it lies within.
/// False for what is damaged, or of a kind that it is better not to see at all.
bool CheckHdf5Message(unsigned kind, io::ByteReader message, Hdf5Claims& claims, io::Error& error);

}  // namespace kelsdk::alembic
