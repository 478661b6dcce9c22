// Any bytes as the data file of an NC cache with one channel of each type. The first byte says
// which form and layout, and whether checksums are put right first, without which nothing gets
// beyond them. What verifies must be readable to the last sample, and no array may be longer than
// its file can hold.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "backends/io/byte_reader.h"
#include "backends/io/checked.h"
#include "backends/nc/checksum.h"
#include "backends/nc/description.h"
#include "backends/nc/records.h"
#include "backends/zuCacheFileInterface.h"
#include "fuzz/support.h"

namespace {

using namespace kelsdk::nc;
using kelsdk::zuCacheData;
using kelsdk::zuCacheFileInterface;
using kelsdk::fuzz::Require;
using kelsdk::io::RangeFits;
using kelsdk::test::Bytes;
using kelsdk::test::WriteBytes;

void SetChecksum(std::uint8_t* bytes, std::size_t size) {
  kelsdk::io::StoreLittle(bytes + size - 8, Checksum(bytes, size - 8));
}

void RepairRecords(Bytes* file) {
  std::uint64_t position = kHeaderSize;
  while (RangeFits(position, kRecordHeaderSize, file->size())) {
    std::uint8_t* const record = file->data() + position;
    SetChecksum(record, kRecordHeaderSize);
    RecordHeader header;
    LoadRecordHeader(record, &header);
    position += kRecordHeaderSize;
    if (header.kind != eArrayRecord && header.kind != eChannelRecord) continue;
    if (!RangeFits(position, header.storedSize, file->size())) return;
    header.storedChecksum = Checksum(file->data() + position, header.storedSize);
    StoreRecordHeader(header, record);
    position = AlignUp(position + header.storedSize);
  }
}

void RepairIndices(Bytes* file) {
  std::uint8_t* const trailerBytes = file->data() + file->size() - kTrailerSize;
  Trailer trailer;
  SetChecksum(trailerBytes, kTrailerSize);
  if (!LoadTrailer(trailerBytes, &trailer)) return;
  const std::uint64_t size = std::uint64_t{trailer.channelCount} * kDirectoryEntrySize;
  if (!RangeFits(trailer.directory, size, file->size())) return;
  std::uint8_t* const directory = file->data() + trailer.directory;
  for (std::uint64_t at = 0; at < size; at += kDirectoryEntrySize) {
    DirectoryEntry entry = LoadDirectoryEntry(directory + at);
    const std::uint64_t indexSize = std::uint64_t{entry.samples.count} * kIndexEntrySize;
    if (!RangeFits(entry.indexOffset, indexSize, file->size())) continue;
    entry.indexChecksum = Checksum(file->data() + entry.indexOffset, indexSize);
    StoreDirectoryEntry(entry, directory + at);
  }
  trailer.directoryChecksum = Checksum(directory, size);
  StoreTrailer(trailer, trailerBytes);
}

std::string DescriptionOf(const Bytes& file, int form) {
  Description description;
  if (file.size() >= kHeaderSize) {
    std::copy_n(file.begin() + 16, description.identity.size(), description.identity.begin());
  }
  description.encoding = (form & 1) == 0 ? eRaw : (form & 16) != 0 ? ePredicted : eBytePlanes;
  description.isPerFrame = (form & 2) != 0;
  description.ticksPerFrame = 250;
  for (int type = 2; type <= 6; ++type) {
    Channel channel;
    channel.name = kElementTypes[type].name;
    channel.type = static_cast<EType>(type);
    description.channels.push_back(channel);
  }
  if (description.isPerFrame) description.times.Append(0);
  return FormatDescription(description);
}

// Reads all samples; false when one that is claimed cannot be read.
bool ReadsWhole(zuCacheFileInterface& cache, std::size_t fileSize) {
  bool whole = true;
  Bytes array;
  for (unsigned int channel = 0; channel < cache.numChannels(); ++channel) {
    zuCacheData::zuCacheDataType type = zuCacheData::eNCUnknownData;
    cache.channelDataType(channel, type);
    const unsigned int samples = std::min(cache.getDataCount(channel), 1000u);
    for (unsigned int i = 0; i < samples; ++i) {
      int tick = 0;
      unsigned int count = 0;
      const bool found =
          cache.getDataTime(channel, i, tick) && cache.getArrayLengthAtTime(channel, tick, count);
      Require(ArraySize(type, count) / kBestCompression <= fileSize);
      array.resize(ArraySize(type, count) + 1);
      void* data = array.data();
      whole = found && cache.getArrayDataAtTime(channel, tick, data, count) && whole;
    }
  }
  return whole;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const kelsdk::fuzz::ScratchFolder scratch;
  if (size == 0) return 0;
  const int form = data[0];  // 1 compact, 2 per frame, 4 repaired, 8 read in groups, 16 predicted
  Bytes file(data + 1, data + size);
  if ((form & 4) != 0 && file.size() >= kHeaderSize + kTrailerSize) {
    SetChecksum(file.data(), kHeaderSize);
    RepairIndices(&file);
    RepairRecords(&file);
  }
  const std::string description = DescriptionOf(file, form);
  WriteBytes(scratch.File("shot.xml"), Bytes(description.begin(), description.end()));
  const std::string path =
      scratch.File((form & 2) != 0 ? "shotFrame0." : "shot.") + ((form & 1) != 0 ? "ncc" : "ncx");
  WriteBytes(path, file);

  const std::string folder = scratch.File("");
  const bool sound = zuCacheFileInterface::verify(folder.c_str(), "shot", nullptr, nullptr);
  zuCacheFileInterface cache;
  const bool opened = cache.initFileRead("shot", folder.c_str());
  cache.setOptimizeMultiChannelRead((form & 8) != 0);
  const bool whole = opened && ReadsWhole(cache, file.size());
  Require(whole || !sound);
  ::unlink(path.c_str());
  return 0;
}
