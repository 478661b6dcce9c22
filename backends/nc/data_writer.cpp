#include "backends/nc/data_writer.h"

#include <algorithm>
#include <cstring>

#include "backends/io/endian.h"
#include "backends/nc/checksum.h"

namespace kelsdk::nc {
namespace {

constexpr unsigned int kDataFileMode = 0666;  // before the process's mask
constexpr std::uint8_t kZeros[kAlignment] = {};

// Copying an array of up to so many bytes is cheaper than a system call.
constexpr std::uint64_t kSmallArray = std::uint64_t{16} * 1024;
constexpr std::size_t kMostPending = std::size_t{256} * 1024;

struct iovec RunOf(const void* bytes, std::size_t size) {
  // Written from only: the system's structure serves reads as well and knows no const.
  return {const_cast<void*>(bytes), size};
}

}  // namespace

bool DataWriter::Create(const std::string& path, const FileHeader& header, io::Error& error) {
  if (!file_.Create(path.c_str(), kDataFileMode, error)) return false;
  end_ = 0;
  encoding_ = header.encoding;
  pending_.clear();
  StoreFileHeader(header, Pend(kHeaderSize));
  return true;
}

bool DataWriter::Reopen(const std::string& path, const FileLayout& layout, std::uint64_t dataEnd,
                        io::Error& error) {
  if (!file_.OpenExisting(path.c_str(), error)) return false;
  end_ = dataEnd;
  encoding_ = layout.encoding;
  pending_.clear();
  return file_.Truncate(dataEnd, error);
}

std::uint8_t* DataWriter::Pend(std::size_t size) {
  const std::size_t used = pending_.size();
  pending_.resize(AlignUp(used + size));
  return pending_.data() + used;
}

bool DataWriter::Flush(io::Error& error) {
  if (!file_.WriteAt(end_, pending_.data(), pending_.size(), error)) return false;
  end_ += pending_.size();
  pending_.clear();
  return true;
}

bool DataWriter::ReadAt(std::uint64_t offset, void* buffer, std::size_t count,
                        io::Error& error) const {
  if (offset < end_) return file_.ReadAt(offset, buffer, count, error);
  if (count != 0) std::memcpy(buffer, pending_.data() + (offset - end_), count);
  return true;
}

void DataWriter::AddChannel(std::uint32_t index, const Channel& channel) {
  std::string payload = channel.name + channel.interpretation;
  if (encoding_ == ePredicted) {
    char bytes[sizeof channel.maximumError];
    io::StoreLittle(bytes, channel.maximumError);
    payload.append(bytes, sizeof bytes);
  }
  RecordHeader header;
  header.kind = eChannelRecord;
  header.channel = index;
  header.count = static_cast<std::uint32_t>(channel.name.size());
  header.storedSize = payload.size();
  header.checksum = header.storedChecksum = Checksum(payload.data(), payload.size());
  header.payloadOffset = End() + kRecordHeaderSize;
  header.type = static_cast<std::uint32_t>(channel.type);
  header.interval = channel.interval;
  std::uint8_t* const record = Pend(kRecordHeaderSize + payload.size());
  StoreRecordHeader(header, record);
  std::copy(payload.begin(), payload.end(), record + kRecordHeaderSize);
}

bool DataWriter::AddArray(std::uint32_t channel, EType type, const void* array,
                          const std::uint8_t* encoded, std::size_t encodedSize, SampleEntry* entry,
                          io::Error& error) {
  const void* const stored = encoded != nullptr ? encoded : array;
  entry->storedSize = encoded != nullptr ? encodedSize : ArraySize(type, entry->count);
  entry->offset = End() + kRecordHeaderSize;

  RecordHeader header;
  header.kind = eArrayRecord;
  header.channel = channel;
  header.tick = entry->tick;
  header.count = entry->count;
  header.storedSize = entry->storedSize;
  header.checksum = entry->checksum;
  header.storedChecksum = encoded != nullptr ? Checksum(encoded, encodedSize) : entry->checksum;
  header.payloadOffset = entry->offset;
  header.type = static_cast<std::uint32_t>(type);
  if (entry->storedSize <= kSmallArray) return AddSmallArray(header, stored, error);

  const std::size_t waiting = pending_.size();
  StoreRecordHeader(header, Pend(kRecordHeaderSize));
  const std::uint64_t payloadEnd = entry->offset + entry->storedSize;
  struct iovec runs[] = {RunOf(pending_.data(), pending_.size()),
                         RunOf(stored, static_cast<std::size_t>(entry->storedSize)),
                         RunOf(kZeros, static_cast<std::size_t>(AlignUp(payloadEnd) - payloadEnd))};
  if (!file_.WriteGather(end_, runs, 3, error)) {
    pending_.resize(waiting);
    return false;
  }
  end_ = AlignUp(payloadEnd);
  pending_.clear();
  return true;
}

bool DataWriter::AddSmallArray(const RecordHeader& header, const void* stored, io::Error& error) {
  const auto size = static_cast<std::size_t>(header.storedSize);
  std::uint8_t* const record = Pend(kRecordHeaderSize + size);
  StoreRecordHeader(header, record);
  if (size != 0) std::memcpy(record + kRecordHeaderSize, stored, size);
  return pending_.size() < kMostPending || Flush(error);
}

void DataWriter::AddRepeat(std::uint32_t channel, EType type, const SampleEntry& entry) {
  RecordHeader header;
  header.kind = eRepeatRecord;
  header.channel = channel;
  header.tick = entry.tick;
  header.count = entry.count;
  header.storedSize = entry.storedSize;
  header.checksum = entry.checksum;
  header.payloadOffset = entry.offset;
  header.type = static_cast<std::uint32_t>(type);
  StoreRecordHeader(header, Pend(kRecordHeaderSize));
}

bool DataWriter::EndBlock(std::int32_t tick, std::uint32_t arrayCount, io::Error& error) {
  RecordHeader header;
  header.kind = eBlockEndRecord;
  header.tick = tick;
  header.count = arrayCount;
  StoreRecordHeader(header, Pend(kRecordHeaderSize));
  return (blocksWait_ && pending_.size() < kMostPending) || Flush(error);
}

bool DataWriter::Finish(std::span<const Channel> channels,
                        std::span<const std::vector<SampleEntry>> indices, const Identity& identity,
                        std::uint32_t blockCount, io::Error& error) {
  Trailer trailer;
  trailer.identity = identity;
  trailer.dataEnd = End();
  trailer.channelCount = static_cast<std::uint32_t>(channels.size());
  trailer.blockCount = blockCount;

  trailer.directory = End();
  for (const auto& index : indices) {
    trailer.directory += AlignUp(index.size() * kIndexEntrySize);
  }
  const std::size_t directorySize = channels.size() * kDirectoryEntrySize;
  const std::uint64_t fileEnd = trailer.directory + directorySize + kTrailerSize;
  std::vector<std::uint8_t>& out = pending_;
  out.reserve(static_cast<std::size_t>(fileEnd - end_));

  directory_.assign(channels.size(), DirectoryEntry());
  for (std::size_t i = 0; i < channels.size(); ++i) {
    const std::vector<SampleEntry>& index = indices[i];
    DirectoryEntry& entry = directory_[i];
    entry = DescribeIndex(channels[i].type, channels[i].interval, index);
    entry.indexOffset = End();
    std::uint8_t* const bytes = Pend(index.size() * kIndexEntrySize);
    if (!index.empty()) std::memcpy(bytes, index.data(), index.size() * kIndexEntrySize);
    entry.indexChecksum = Checksum(bytes, index.size() * kIndexEntrySize);
  }
  std::uint8_t* const bytes = Pend(directorySize);
  for (std::size_t i = 0; i < directory_.size(); ++i) {
    StoreDirectoryEntry(directory_[i], bytes + i * kDirectoryEntrySize);
  }
  trailer.directoryChecksum = Checksum(bytes, directorySize);
  StoreTrailer(trailer, Pend(kTrailerSize));
  return Flush(error);
}

}  // namespace kelsdk::nc
