#include "backends/alembic/hdf5_structures.h"

#include <algorithm>
#include <cstring>

#include "backends/alembic/hdf5_messages.h"
#include "backends/io/checked.h"

namespace kelsdk::alembic {
namespace {

using io::ByteReader;
using Ull = unsigned long long;  // for messages

constexpr std::uint8_t kSignature[] = {0x89, 'H', 'D', 'F', '\r', '\n', 0x1a, '\n'};
constexpr std::uint64_t kMostSuperblock = 100;
constexpr std::uint64_t kHeapHeader = 32;
constexpr std::uint64_t kFreeListEnd = 1;
constexpr std::uint64_t kFreeBlock = 16;  // where the next is, how long this one is
constexpr std::uint64_t kNodeHeader = 24;
constexpr std::uint64_t kNameEntry = 40;

// The kinds of trees.
constexpr unsigned kGroup = 0;
constexpr unsigned kChunks = 1;

bool Damaged(const char* what, std::uint64_t address, io::Error& error) {
  return error.Set(io::Error::eDamaged, "%s at %llu is damaged", what, static_cast<Ull>(address));
}

}  // namespace

bool Hdf5Structures::ReadSuperblock(io::Error& error) {
  superblock_.end = file_.Size();
  if (!Peek(0, kMostSuperblock, bytes_, error)) return false;
  ByteReader in(bytes_.data(), bytes_.size());
  if (!in.Match(kSignature, sizeof kSignature))
    return error.Set(io::Error::eUnsupported, "something else stands before the archive");
  const unsigned version = in.U8();
  const bool old = version < 2;
  if (old) in.Skip(4);
  const unsigned addressBytes = in.U8();
  const unsigned lengthBytes = in.U8();
  in.Skip(1);
  if (old) {
    superblock_.leafRank = in.U16();
    superblock_.groupRank = in.U16();
    in.Skip(4);
  }
  if (version == 1) {
    superblock_.chunkRank = in.U16();
    in.Skip(2);
  }
  const std::uint64_t base = in.U64();
  const std::uint64_t extension = in.U64();  // in old ones free space, which is not kept
  const std::uint64_t end = in.U64();
  const std::uint64_t driver = old ? in.U64() : kHdf5Nowhere;
  if (old) in.Skip(kHdf5LengthBytes);  // the root's name
  superblock_.root = in.U64();
  if (!in.Ok() || version > 3 || base != 0)
    return error.Set(io::Error::eDamaged, "the superblock is damaged");
  if (addressBytes != kHdf5LengthBytes || lengthBytes != kHdf5LengthBytes ||
      extension != kHdf5Nowhere || driver != kHdf5Nowhere) {
    return error.Set(io::Error::eUnsupported, "a superblock as no writer of archives makes it");
  }
  if (end > file_.Size()) {
    return error.Set(io::Error::eCutShort, "cut short: %llu of %llu bytes",
                     static_cast<Ull>(file_.Size()), static_cast<Ull>(end));
  }
  superblock_.end = budget_ = end;
  return true;
}

bool Hdf5Structures::Peek(std::uint64_t address, std::uint64_t most,
                          std::vector<std::uint8_t>& bytes, io::Error& error) {
  const std::uint64_t end = superblock_.end;
  bytes.resize(static_cast<std::size_t>(address < end ? std::min(most, end - address) : 0));
  return bytes.empty() || cache_.Read(address, bytes.data(), bytes.size(), error);
}

bool Hdf5Structures::Read(const char* what, std::uint64_t address, std::uint64_t size,
                          std::vector<std::uint8_t>& bytes, io::Error& error) {
  if (!io::RangeFits(address, size, superblock_.end)) {
    return error.Set(io::Error::eDamaged, "%s takes %llu bytes at %llu of %llu", what,
                     static_cast<Ull>(size), static_cast<Ull>(address),
                     static_cast<Ull>(superblock_.end));
  }
  if (size > budget_ - taken_) {
    return error.Set(io::Error::eDamaged, "%s at %llu shares its place with others", what,
                     static_cast<Ull>(address));
  }
  taken_ += size;
  return Peek(address, size, bytes, error);
}

bool Hdf5Structures::CheckGroup(std::uint64_t tree, std::uint64_t heap, io::Error& error) {
  return CheckHeap(heap, error) &&
         CheckTree({kGroup, superblock_.groupRank, kHdf5LengthBytes}, tree, error) &&
         std::all_of(leaves_.begin(), leaves_.end(),
                     [&](std::uint64_t leaf) { return CheckNames(leaf, error); });
}

bool Hdf5Structures::CheckChunks(std::uint64_t tree, unsigned rank, io::Error& error) {
  return CheckTree({kChunks, superblock_.chunkRank, 8 + kHdf5LengthBytes * rank}, tree, error);
}

bool Hdf5Structures::CheckHeap(std::uint64_t address, io::Error& error) {
  if (!Read("a heap of names", address, kHeapHeader, bytes_, error)) return false;
  ByteReader in(bytes_.data(), bytes_.size());
  const bool signedHeap = in.Match("HEAP", 4);
  in.Skip(4);
  const std::uint64_t size = in.U64();
  const std::uint64_t firstFree = in.U64();
  if (!signedHeap) return Damaged("a heap of names", address, error);
  return Read("a heap of names", in.U64(), size, heap_, error) &&
         (IsFreeList(firstFree) || Damaged("a heap of names", address, error));
}

bool Hdf5Structures::IsFreeList(std::uint64_t first) const {
  std::uint64_t left = heap_.size() / kFreeBlock;
  for (std::uint64_t block = first; block != kFreeListEnd; --left) {
    if (left == 0 || !io::RangeFits(block, kFreeBlock, heap_.size())) return false;
    ByteReader in(heap_.data() + block, kFreeBlock);
    const std::uint64_t next = in.U64();
    if (!io::RangeFits(block, in.U64(), heap_.size())) return false;
    block = next;
  }
  return true;
}

bool Hdf5Structures::CheckTree(const Tree& tree, std::uint64_t root, io::Error& error) {
  leaves_.clear();
  nodes_ = {{root, -1}};
  while (!nodes_.empty()) {
    const Node node = nodes_.back();
    nodes_.pop_back();
    if (!CheckNode(tree, node, error)) return false;
  }
  return true;
}

bool Hdf5Structures::CheckNode(const Tree& tree, const Node& node, io::Error& error) {
  const std::uint64_t most = std::uint64_t{2} * tree.rank;
  const std::uint64_t size =
      kNodeHeader + most * (tree.keyBytes + kHdf5LengthBytes) + tree.keyBytes;
  if (!Read("a tree", node.address, size, bytes_, error)) return false;
  ByteReader in(bytes_.data(), bytes_.size());
  const bool known = in.Match("TREE", 4) && in.U8() == tree.kind;
  const int level = in.U8();
  const unsigned count = in.U16();
  if (!known || count > most || (node.level >= 0 && level != node.level))
    return Damaged("a tree", node.address, error);
  in.Skip(2 * kHdf5LengthBytes);  // siblings
  for (unsigned i = 0; i < count; ++i) {
    ByteReader key(in.Bytes(tree.keyBytes), tree.keyBytes);
    const std::uint64_t child = in.U64();
    level == 0 ? leaves_.push_back(child) : nodes_.push_back({child, level - 1});
    if (tree.kind == kGroup && !IsText(key.U64())) return Damaged("a tree", node.address, error);
  }
  // One key more than children.
  if (count > 0 && tree.kind == kGroup && !IsText(in.U64()))
    return Damaged("a tree", node.address, error);
  return true;
}

bool Hdf5Structures::CheckNames(std::uint64_t address, io::Error& error) {
  constexpr std::uint64_t kHeader = 8;
  constexpr unsigned kSoftLink = 2;
  const std::uint64_t most = std::uint64_t{2} * superblock_.leafRank;
  if (!Read("a symbol table", address, kHeader + most * kNameEntry, bytes_, error)) return false;
  ByteReader in(bytes_.data(), bytes_.size());
  bool sound = in.Match("SNOD", 4);
  in.Skip(2);
  const unsigned count = in.U16();
  sound = sound && count <= most;
  for (unsigned i = 0; sound && i < count; ++i) {
    sound = IsText(in.U64());
    in.Skip(kHdf5LengthBytes);
    const unsigned cached = in.U32();
    in.Skip(4);
    ByteReader scratch(in.Bytes(16), 16);
    if (cached == kSoftLink) sound = sound && IsText(scratch.U32());
  }
  return sound || Damaged("a symbol table", address, error);
}

// Whether a text begins there that ends within the heap.
bool Hdf5Structures::IsText(std::uint64_t offset) const {
  return offset < heap_.size() &&
         std::memchr(heap_.data() + offset, 0, heap_.size() - offset) != nullptr;
}

}  // namespace kelsdk::alembic
