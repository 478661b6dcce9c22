#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "backends/io/input_file.h"

namespace kelsdk::alembic {

/// Serves many small reads of one file from a few large ones. Headers lie close together, but each
/// takes several reads of a few bytes; on a network drive every one of them would be a round trip.
/// Archives end with their headers: of a file of up to kMostHeld first the last block is read, and
/// when that does not do, the whole file in one go. Of others blocks are read, each twice as long
/// as the one before while they follow one another.
class BlockCache {
 public:
  static constexpr std::size_t kBlockBytes = std::size_t{64} * 1024;
  static constexpr std::size_t kMostBlockBytes = 8 * kBlockBytes;
  static constexpr std::size_t kMostHeld = 32 * kBlockBytes;

  /// `file` outlives the cache.
  explicit BlockCache(const io::InputFile& file) : file_(file) {}

  /// Forgets everything and fits the cache to the size of the file, which is open.
  void Start();

  /// Copies `count` bytes at `offset`, which the caller has checked against the file's size. Reads
  /// longer than a block bypass the cache. Throws std::bad_alloc.
  bool Read(std::uint64_t offset, void* to, std::size_t count, io::Error& error);

  /// Gives back the memory and from now on keeps two blocks: for a reader that is past its headers
  /// and stays open for long. One serves lists of samples, one the sizes of what they list.
  void Shrink();

 private:
  struct Block {
    std::uint64_t offset = 0;
    std::size_t size = 0;
    std::size_t capacity = 0;
    std::uint64_t lastUse = 0;
    std::unique_ptr<std::uint8_t[]> bytes;
  };

  void Start(std::size_t blockBytes, std::size_t mostBlockBytes, std::size_t mostHeld);
  std::size_t BlockBytes() const;
  const Block* Find(std::uint64_t offset, io::Error& error);
  Block* Fill(std::uint64_t offset, io::Error& error);
  Block* FillNext(std::uint64_t offset, io::Error& error);
  Block* FillFrom(std::uint64_t begin, std::size_t capacity, io::Error& error);
  Block& MakeRoom(std::size_t capacity);

  const io::InputFile& file_;
  bool holdsWhole_ = false;         // the file fits
  std::size_t blockBytes_ = 0;      // of a block that does not follow the last one
  std::size_t mostBlockBytes_ = 0;  // of any block
  std::size_t mostHeld_ = 0;        // of all blocks together
  std::size_t held_ = 0;
  std::size_t lastBytes_ = 0;  // of the block read last,
  std::uint64_t lastEnd_ = 0;  // and where it ends
  std::uint64_t clock_ = 0;
  std::size_t recent_ = 0;
  std::vector<Block> blocks_;
};

}  // namespace kelsdk::alembic
