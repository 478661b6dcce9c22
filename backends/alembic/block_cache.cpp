#include "backends/alembic/block_cache.h"

#include <algorithm>
#include <cstring>

namespace kelsdk::alembic {

void BlockCache::Start() {
  blocks_ = std::vector<Block>();
  recent_ = 0;
  const bool whole = file_.Size() <= kManyBytes;
  blockBytes_ = whole ? static_cast<std::size_t>(file_.Size()) : kBlockBytes;
  mostBlocks_ = whole ? 1 : kManyBytes / kBlockBytes;
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

void BlockCache::Shrink() {
  blocks_ = std::vector<Block>();
  recent_ = 0;
  blockBytes_ = std::min(blockBytes_, kBlockBytes);
  mostBlocks_ = 2;
}

const BlockCache::Block* BlockCache::Find(std::uint64_t offset, io::Error& error) {
  const auto holds = [offset](const Block& block) {
    return offset >= block.offset && offset - block.offset < block.size;
  };
  if (recent_ < blocks_.size() && holds(blocks_[recent_])) return &blocks_[recent_];
  const auto found = std::find_if(blocks_.begin(), blocks_.end(), holds);
  const bool hit = found != blocks_.end();
  Block& block = hit ? *found : Victim();
  if (!hit && !Fill(block, offset, error)) return nullptr;
  block.lastUse = ++clock_;
  recent_ = static_cast<std::size_t>(&block - blocks_.data());
  return &block;
}

BlockCache::Block& BlockCache::Victim() {
  if (blocks_.size() < mostBlocks_) return blocks_.emplace_back();
  return *std::min_element(blocks_.begin(), blocks_.end(),
                           [](const Block& a, const Block& b) { return a.lastUse < b.lastUse; });
}

bool BlockCache::Fill(Block& block, std::uint64_t offset, io::Error& error) {
  block.size = 0;
  if (block.bytes == nullptr)
    block.bytes = std::make_unique_for_overwrite<std::uint8_t[]>(blockBytes_);
  const std::uint64_t begin = offset - offset % blockBytes_;
  const auto size =
      static_cast<std::size_t>(std::min<std::uint64_t>(blockBytes_, file_.Size() - begin));
  if (!file_.ReadAt(begin, block.bytes.get(), size, error)) return false;
  block.offset = begin;
  block.size = size;
  return true;
}

}  // namespace kelsdk::alembic
