#pragma once

#include <cstdint>
#include <vector>

#include "backends/alembic/block_cache.h"
#include "backends/io/byte_reader.h"
#include "backends/io/error.h"

namespace kelsdk::alembic {

/// What the superblock tells of the container.
struct Hdf5Superblock {
  std::uint64_t end = 0;
  std::uint64_t root = 0;  ///< object header of the root group
  // Half of the most entries in a node of ...
  unsigned leafRank = 4;    ///< names,
  unsigned groupRank = 16;  ///< the tree above them,
  unsigned chunkRank = 32;  ///< the tree of chunks
};

/// Reads what the headers of objects lead to and libhdf5 believes without a checksum: the heaps of
/// names and the trees of symbol tables and chunks. No structure shares its place with another, so
/// all of them together take no more than the container: what goes round in circles ends. Throws
/// std::bad_alloc.
class Hdf5Structures {
 public:
  /// Both outlive it; `cache` serves `file`, which is open when it is used.
  Hdf5Structures(const io::InputFile& file, BlockCache& cache) : file_(file), cache_(cache) {}

  bool ReadSuperblock(io::Error& error);
  const Hdf5Superblock& superblock() const { return superblock_; }

  /// Begins with an object; what is read of it counts once it is kept, so that one which failed may
  /// be asked for again.
  void Begin() { taken_ = 0; }
  void Keep() { budget_ -= taken_; }

  /// Up to `most` bytes, for what tells its own length.
  bool Peek(std::uint64_t address, std::uint64_t most, std::vector<std::uint8_t>& bytes,
            io::Error& error);
  /// One structure; `what` names it in messages: "an object header".
  bool Read(const char* what, std::uint64_t address, std::uint64_t size,
            std::vector<std::uint8_t>& bytes, io::Error& error);

  /// The names and entries of a group.
  bool CheckGroup(std::uint64_t tree, std::uint64_t heap, io::Error& error);
  /// The tree of chunks, of a rank that counts the bytes of a value too.
  bool CheckChunks(std::uint64_t tree, unsigned rank, io::Error& error);

 private:
  struct Tree {
    unsigned kind;
    unsigned rank;
    std::size_t keyBytes;
  };
  struct Node {
    std::uint64_t address;
    int level;  // -1: of the first, any
  };

  bool CheckHeap(std::uint64_t address, io::Error& error);
  bool CheckTree(const Tree& tree, std::uint64_t root, io::Error& error);
  bool CheckNode(const Tree& tree, const Node& node, io::Error& error);
  bool CheckNames(std::uint64_t address, io::Error& error);
  bool IsFreeList(std::uint64_t first) const;
  bool IsText(std::uint64_t offset) const;

  const io::InputFile& file_;
  BlockCache& cache_;
  Hdf5Superblock superblock_;
  std::uint64_t budget_ = 0;  // bytes that may still be read
  std::uint64_t taken_ = 0;   // of those, by the present object
  std::vector<std::uint8_t> bytes_;
  std::vector<std::uint8_t> heap_;     // of the group being read
  std::vector<Node> nodes_;            // of the tree being read
  std::vector<std::uint64_t> leaves_;  // and what its lowest nodes list
};

}  // namespace kelsdk::alembic
