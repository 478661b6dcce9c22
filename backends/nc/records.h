#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

#include "backends/io/error.h"
#include "backends/nc/element_type.h"
#include "backends/nc/format.h"
#include "backends/nc/layout.h"
#include "backends/nc/timeline.h"

namespace kelsdk::nc {

// The fixed-size structures of a data file, to and from bytes. Each ends in a checksum of what
// stands before it. Storing fills exactly the size that format.h gives; loading checks signature
// and checksum, and gives false for anything else.

struct FileHeader : FileLayout {
  Identity identity = {};
  std::uint64_t created = 0;  ///< nanoseconds since 1970
};

struct RecordHeader {
  std::uint32_t kind = 0;
  std::uint32_t channel = 0;
  std::int32_t tick = 0;
  std::uint32_t count = 0;           ///< elements; arrays of a block; bytes of a channel's name
  std::uint64_t storedSize = 0;      ///< payload bytes
  std::uint64_t checksum = 0;        ///< of the payload, decoded
  std::uint64_t storedChecksum = 0;  ///< of the payload as it stands in the file
  std::uint64_t payloadOffset = 0;   ///< in the file
  std::uint32_t type = 0;            ///< of the channel's elements
  std::uint32_t interval = 0;        ///< of a channel record: its declared interval, 0 for none
};

/// The index of one channel.
struct DirectoryEntry {
  std::uint64_t indexOffset = 0;
  std::uint64_t indexChecksum = 0;
  Extent samples;
  std::uint32_t type = 0;      ///< of the channel's elements
  std::uint32_t declared = 0;  ///< the channel's declared interval, 0 for none
};

struct Trailer {
  Identity identity = {};
  std::uint64_t dataEnd = 0;    ///< where the records end and the indices begin
  std::uint64_t directory = 0;  ///< offset of the first directory entry
  std::uint32_t channelCount = 0;
  std::uint32_t blockCount = 0;
  std::uint64_t directoryChecksum = 0;
};

// An index on disk is an array of SampleEntry as it stands in memory, so that a million samples are
// loaded with one read.
static_assert(sizeof(SampleEntry) == kIndexEntrySize && std::is_trivially_copyable_v<SampleEntry>);
static_assert(offsetof(SampleEntry, tick) == 0 && offsetof(SampleEntry, count) == 4 &&
              offsetof(SampleEntry, offset) == 8 && offsetof(SampleEntry, storedSize) == 16 &&
              offsetof(SampleEntry, checksum) == 24);

void StoreFileHeader(const FileHeader& header, std::uint8_t* bytes);
bool LoadFileHeader(const std::uint8_t* bytes, FileHeader* header, io::Error& error);

void StoreRecordHeader(const RecordHeader& header, std::uint8_t* bytes);
bool LoadRecordHeader(const std::uint8_t* bytes, RecordHeader* header);

/// Says of an index what does not depend on where it stands.
DirectoryEntry DescribeIndex(EType type, std::uint32_t declared,
                             std::span<const SampleEntry> samples);
void StoreDirectoryEntry(const DirectoryEntry& entry, std::uint8_t* bytes);
DirectoryEntry LoadDirectoryEntry(const std::uint8_t* bytes);

void StoreTrailer(const Trailer& trailer, std::uint8_t* bytes);
bool LoadTrailer(const std::uint8_t* bytes, Trailer* trailer);

/// True when an array of so many elements can be stored in so many bytes at that place, given
/// where the records of the file end.
bool IsPlausibleArray(EType type, const SampleEntry& entry, std::uint64_t dataEnd);

}  // namespace kelsdk::nc
