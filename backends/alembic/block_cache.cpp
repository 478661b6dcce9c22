#include "backends/alembic/block_cache.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kelsdk::alembic {

void BlockCache::Start() {
  Start(BlockBytes(), kMostBlockBytes, kMostHeld);
  holdsWhole_ = file_.Size() <= kMostHeld;
}

void BlockCache::Shrink() {
  Start(BlockBytes(), BlockBytes(), 2 * BlockBytes());
  holdsWhole_ = false;
}

std::size_t BlockCache::BlockBytes() const {
  return static_cast<std::size_t>(std::min<std::uint64_t>(file_.Size(), kBlockBytes));
}

void BlockCache::Start(std::size_t blockBytes, std::size_t mostBlockBytes, std::size_t mostHeld) {
  blocks_ = std::vector<Block>();
  blockBytes_ = blockBytes;
  mostBlockBytes_ = mostBlockBytes;
  mostHeld_ = mostHeld;
  held_ = 0;
  lastBytes_ = 0;
  lastEnd_ = 0;
}

bool BlockCache::Read(std::uint64_t offset, void* to, std::size_t count, io::Error& error) {
  if (count > blockBytes_) return file_.ReadAt(offset, to, count, error);
  auto* target = static_cast<std::uint8_t*>(to);
  while (count > 0) {
    const Block* block = Find(offset, error);
    if (block == nullptr) return false;
    const auto skip = static_cast<std::size_t>(offset - block->offset);
    const std::size_t part = std::min(count, block->size - skip);
    std::memcpy(target, block->bytes.get() + skip, part);
    target += part;
    offset += part;
    count -= part;
  }
  return true;
}

const BlockCache::Block* BlockCache::Find(std::uint64_t offset, io::Error& error) {
  const auto holds = [offset](const Block& block) {
    return offset >= block.offset && offset - block.offset < block.size;
  };
  if (recent_ < blocks_.size() && holds(blocks_[recent_])) return &blocks_[recent_];
  const auto found = std::find_if(blocks_.begin(), blocks_.end(), holds);
  Block* block = found != blocks_.end() ? &*found : Fill(offset, error);
  if (block == nullptr) return nullptr;
  block->lastUse = ++clock_;
  recent_ = static_cast<std::size_t>(block - blocks_.data());
  return block;
}

BlockCache::Block* BlockCache::Fill(std::uint64_t offset, io::Error& error) {
  if (!holdsWhole_) return FillNext(offset, error);
  const std::uint64_t lastBlock = file_.Size() - blockBytes_;
  if (blocks_.empty() && offset >= lastBlock) return FillFrom(lastBlock, blockBytes_, error);
  blocks_.clear();
  held_ = 0;
  return FillFrom(0, static_cast<std::size_t>(file_.Size()), error);
}

BlockCache::Block* BlockCache::FillNext(std::uint64_t offset, io::Error& error) {
  const bool follows = lastBytes_ != 0 && offset >= lastEnd_ && offset - lastEnd_ < blockBytes_;
  const std::size_t capacity = follows ? std::min(2 * lastBytes_, mostBlockBytes_) : blockBytes_;
  const std::uint64_t aligned = offset - offset % blockBytes_;
  return FillFrom(follows ? std::max(lastEnd_, aligned) : aligned, capacity, error);
}

BlockCache::Block* BlockCache::FillFrom(std::uint64_t begin, std::size_t capacity,
                                        io::Error& error) {
  const auto size =
      static_cast<std::size_t>(std::min<std::uint64_t>(capacity, file_.Size() - begin));
  Block& block = MakeRoom(capacity);
  block.size = 0;
  if (!file_.ReadAt(begin, block.bytes.get(), size, error)) return nullptr;
  block.offset = begin;
  block.size = size;
  lastBytes_ = capacity;
  lastEnd_ = begin + size;
  return &block;
}

// The least recently used blocks go, or one of them serves again when it is of the right length.
BlockCache::Block& BlockCache::MakeRoom(std::size_t capacity) {
  while (!blocks_.empty() && held_ + capacity > mostHeld_) {
    Block& victim =
        *std::min_element(blocks_.begin(), blocks_.end(),
                          [](const Block& a, const Block& b) { return a.lastUse < b.lastUse; });
    if (victim.capacity == capacity) return victim;
    held_ -= victim.capacity;
    std::swap(victim, blocks_.back());
    blocks_.pop_back();
  }
  auto bytes = std::make_unique_for_overwrite<std::uint8_t[]>(capacity);
  Block& block = blocks_.emplace_back();
  block.bytes = std::move(bytes);
  block.capacity = capacity;
  held_ += capacity;
  return block;
}

}  // namespace kelsdk::alembic
