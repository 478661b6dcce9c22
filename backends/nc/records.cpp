#include "backends/nc/records.h"

#include <cstring>

#include "backends/io/byte_reader.h"
#include "backends/io/checked.h"
#include "backends/nc/checksum.h"

namespace kelsdk::nc {
namespace {

using io::ByteReader;
using io::StoreLittle;

constexpr std::size_t kChecksumSize = 8;
constexpr std::uint32_t kCompactFlag = 1;
constexpr std::uint32_t kPerFrameFlag = 2;
constexpr std::uint32_t kPredictedFlag = 4;

std::uint32_t FlagsOf(const FileLayout& layout) {
  return (layout.IsCompact() ? kCompactFlag : 0) | (layout.isPerFrame ? kPerFrameFlag : 0) |
         (layout.encoding == ePredicted ? kPredictedFlag : 0);
}

EEncoding EncodingOf(std::uint32_t flags) {
  if ((flags & kCompactFlag) == 0) return eRaw;
  return (flags & kPredictedFlag) != 0 ? ePredicted : eBytePlanes;
}

// Writes fields one after the other; the rest of the structure stays zero.
class FieldWriter {
 public:
  FieldWriter(std::uint8_t* bytes, std::size_t size) : start_(bytes), next_(bytes), size_(size) {
    std::memset(bytes, 0, size);
  }

  template <typename T>
  void Put(T value) {
    StoreLittle(next_, value);
    next_ += sizeof value;
  }
  void Put(const void* bytes, std::size_t count) {
    std::memcpy(next_, bytes, count);
    next_ += count;
  }
  void PutChecksum() {
    const std::size_t covered = size_ - kChecksumSize;
    StoreLittle(start_ + covered, Checksum(start_, covered));
  }

 private:
  std::uint8_t* start_;
  std::uint8_t* next_;
  std::size_t size_;
};

bool ChecksumHolds(const std::uint8_t* bytes, std::size_t size) {
  const std::size_t covered = size - kChecksumSize;
  return io::LoadLittle<std::uint64_t>(bytes + covered) == Checksum(bytes, covered);
}

Identity TakeIdentity(ByteReader& in) {
  Identity identity = {};
  if (const std::uint8_t* bytes = in.Bytes(identity.size())) {
    std::memcpy(identity.data(), bytes, identity.size());
  }
  return identity;
}

}  // namespace

void StoreFileHeader(const FileHeader& header, std::uint8_t* bytes) {
  FieldWriter out(bytes, kHeaderSize);
  out.Put(kFileSignature, sizeof kFileSignature);
  out.Put(kFormatVersion);
  out.Put(FlagsOf(header));
  out.Put(header.identity.data(), header.identity.size());
  out.Put(header.created);
  out.Put(header.ticksPerFrame);
  out.Put(header.exactRate.numerator);
  out.Put(header.exactRate.denominator);
  out.PutChecksum();
}

bool LoadFileHeader(const std::uint8_t* bytes, FileHeader* header, io::Error& error) {
  ByteReader in(bytes, kHeaderSize);
  if (!in.Match(kFileSignature, sizeof kFileSignature)) {
    return error.Set(io::Error::eDamaged, "the data file lacks its signature");
  }
  const std::uint32_t version = in.U32();
  if (!ChecksumHolds(bytes, kHeaderSize)) {
    return error.Set(io::Error::eDamaged, "the data file's header is damaged");
  }
  if (version != kFormatVersion) {
    return error.Set(io::Error::eUnsupported, "data file of version %u, only %u is served", version,
                     kFormatVersion);
  }
  const std::uint32_t flags = in.U32();
  header->encoding = EncodingOf(flags);
  header->isPerFrame = (flags & kPerFrameFlag) != 0;
  header->identity = TakeIdentity(in);
  header->created = in.U64();
  header->ticksPerFrame = in.I32();
  header->exactRate.numerator = in.U32();
  header->exactRate.denominator = in.U32();
  return true;
}

void StoreRecordHeader(const RecordHeader& header, std::uint8_t* bytes) {
  FieldWriter out(bytes, kRecordHeaderSize);
  out.Put(header.kind);
  out.Put(header.channel);
  out.Put(header.tick);
  out.Put(header.count);
  out.Put(header.storedSize);
  out.Put(header.checksum);
  out.Put(header.storedChecksum);
  out.Put(header.payloadOffset);
  out.Put(header.type);
  out.Put(header.interval);
  out.PutChecksum();
}

bool LoadRecordHeader(const std::uint8_t* bytes, RecordHeader* header) {
  if (!ChecksumHolds(bytes, kRecordHeaderSize)) return false;
  ByteReader in(bytes, kRecordHeaderSize);
  header->kind = in.U32();
  header->channel = in.U32();
  header->tick = in.I32();
  header->count = in.U32();
  header->storedSize = in.U64();
  header->checksum = in.U64();
  header->storedChecksum = in.U64();
  header->payloadOffset = in.U64();
  header->type = in.U32();
  header->interval = in.U32();
  return true;
}

DirectoryEntry DescribeIndex(EType type, std::uint32_t declared,
                             std::span<const SampleEntry> samples) {
  DirectoryEntry entry;
  entry.samples = Times(samples).ToExtent();
  entry.type = static_cast<std::uint32_t>(type);
  entry.declared = declared;
  return entry;
}

void StoreDirectoryEntry(const DirectoryEntry& entry, std::uint8_t* bytes) {
  FieldWriter out(bytes, kDirectoryEntrySize);
  out.Put(entry.indexOffset);
  out.Put(entry.indexChecksum);
  out.Put(entry.samples.count);
  out.Put(entry.type);
  out.Put(entry.samples.first);
  out.Put(entry.samples.last);
  out.Put(entry.samples.interval);
  out.Put(entry.declared);
}

DirectoryEntry LoadDirectoryEntry(const std::uint8_t* bytes) {
  ByteReader in(bytes, kDirectoryEntrySize);
  DirectoryEntry entry;
  entry.indexOffset = in.U64();
  entry.indexChecksum = in.U64();
  entry.samples.count = in.U32();
  entry.type = in.U32();
  entry.samples.first = in.I32();
  entry.samples.last = in.I32();
  entry.samples.interval = in.U32();
  entry.declared = in.U32();
  return entry;
}

void StoreTrailer(const Trailer& trailer, std::uint8_t* bytes) {
  FieldWriter out(bytes, kTrailerSize);
  out.Put(trailer.dataEnd);
  out.Put(trailer.directory);
  out.Put(trailer.channelCount);
  out.Put(trailer.blockCount);
  out.Put(trailer.directoryChecksum);
  out.Put(trailer.identity.data(), trailer.identity.size());
  out.Put(kTrailerSignature, sizeof kTrailerSignature);
  out.PutChecksum();
}

bool LoadTrailer(const std::uint8_t* bytes, Trailer* trailer) {
  if (!ChecksumHolds(bytes, kTrailerSize)) return false;
  ByteReader in(bytes, kTrailerSize);
  trailer->dataEnd = in.U64();
  trailer->directory = in.U64();
  trailer->channelCount = in.U32();
  trailer->blockCount = in.U32();
  trailer->directoryChecksum = in.U64();
  trailer->identity = TakeIdentity(in);
  return in.Match(kTrailerSignature, sizeof kTrailerSignature);
}

bool IsPlausibleArray(EType type, const SampleEntry& entry, std::uint64_t dataEnd) {
  if (ElementSize(type) == 0) return false;
  const std::uint64_t rawSize = ArraySize(type, entry.count);
  if (entry.storedSize > rawSize || entry.offset % kAlignment != 0) return false;
  if (entry.offset < kHeaderSize + kRecordHeaderSize) return false;
  if (!io::RangeFits(entry.offset, entry.storedSize, dataEnd)) return false;
  return rawSize / kBestCompression <= entry.storedSize;
}

}  // namespace kelsdk::nc
