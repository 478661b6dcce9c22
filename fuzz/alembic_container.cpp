// The Ogawa container alone: walks groups and blocks from the root as they come, two ways of
// reading a block must agree, and nothing may be larger than the file.
#include <algorithm>
#include <cstring>
#include <vector>

#include "backends/alembic/ogawa_file.h"
#include "fuzz/support.h"

using namespace kelsdk::alembic;
using kelsdk::fuzz::Require;
using kelsdk::io::Error;

namespace {

constexpr std::size_t kMostSlots = 64;
constexpr int kMostVisits = 500;

void ReadBothWays(OgawaFile& file, OgawaSlot slot) {
  Error error;
  std::uint64_t size = 0;
  if (!file.BlockSize(slot, true, size, error)) return;
  Require(size <= file.Size());
  std::vector<std::uint8_t> block;
  Require(file.ReadBlock(slot, size, "a block", block, error) && block.size() == size);
  std::uint64_t valueBytes = 0;
  std::vector<std::uint8_t> values(size);
  // A guess that is too small must change nothing but the number of system calls.
  if (!file.ReadValues(0, slot, size / 3, values.data(), values.size(), valueBytes, error)) return;
  Require(valueBytes + 16 == size || size == 0);
  if (valueBytes != 0) Require(std::memcmp(values.data(), block.data() + 16, valueBytes) == 0);
}

void Walk(OgawaFile& file) {
  std::vector<OgawaSlot> pending = {file.Root()};
  for (int visits = 0; visits < kMostVisits && !pending.empty(); ++visits) {
    const OgawaSlot slot = pending.back();
    pending.pop_back();
    if (slot.IsData()) {
      ReadBothWays(file, slot);
      continue;
    }
    Error error;
    OgawaGroup group;
    if (!file.OpenGroup(slot, "a group", group, error)) continue;
    Require(group.slotCount <= file.Size() / 8);
    std::vector<OgawaSlot> slots(std::min<std::uint64_t>(group.slotCount, kMostSlots));
    Require(file.ReadSlots(group, 0, slots.size(), slots.data(), error));
    Require(!file.ReadSlots(group, group.slotCount, 1, slots.data(), error));
    pending.insert(pending.end(), slots.begin(), slots.end());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string path = kelsdk::fuzz::FileOf(bytes, size);
  Error error;
  OgawaFile file;
  if (file.Open(path.c_str(), error)) {
    Walk(file);
  } else {
    Require(static_cast<bool>(error));
    file.IsHdf5();
  }
  return 0;
}
