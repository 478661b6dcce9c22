#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "backends/io/error.h"
#include "backends/io/input_file.h"
#include "backends/nc/element_type.h"
#include "backends/nc/predicted.h"
#include "backends/nc/records.h"
#include "backends/nc/timeline.h"

namespace kelsdk::nc {

inline bool IsStoredRaw(EType type, const SampleEntry& entry) {
  return entry.storedSize == ArraySize(type, entry.count);
}

/// Whether an array is the one that was written. One that is not is overwritten with zeros: nobody
/// who overlooks the failure takes it for data.
bool VerifyArray(EType type, const SampleEntry& entry, void* array, io::Error& error);

/// A run of bytes of a file.
struct FileRange {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;

  bool Contains(const FileRange& other) const { return begin <= other.begin && other.end <= end; }
  std::uint64_t Size() const { return end - begin; }
};

/// What is read of a sample: the array where it is stored raw, its whole record where it is not.
inline FileRange RangeOf(EType type, const SampleEntry& entry) {
  const std::uint64_t header = IsStoredRaw(type, entry) ? 0 : kRecordHeaderSize;
  return {entry.offset - header, entry.offset + entry.storedSize};
}

/// An array, with the records of those that it is predicted from, as they are read one after the
/// other. Each is checked before the next is looked for.
class RecordChain {
 public:
  struct Link {
    RecordHeader record;
    PredictedHeader form;
    std::size_t at = 0;  // of the record in the bytes
    bool isRaw = false;
  };

  /// Begins with the record of a sample.
  void Start(EType type, const SampleEntry& entry);
  /// The record to be read now; empty when the chain needs no more.
  const FileRange& Wanted() const { return wanted_; }
  /// Room for it, in this object's memory, until the next call. May throw std::bad_alloc.
  std::uint8_t* Room();
  /// Looks at what has been read into the room. Refuses a record that is damaged or is none that
  /// the one before may name.
  bool Accept(std::uint32_t channelCount, io::Error& error);
  /// No further record is needed: the one accepted last has its base elsewhere.
  void Stop() { wanted_ = FileRange(); }

  const Link& operator[](std::size_t i) const { return links_[i]; }
  std::size_t Size() const { return size_; }
  std::span<const std::uint8_t> StoredOf(const Link& link) const {
    return {bytes_.data() + link.at + kRecordHeaderSize,
            static_cast<std::size_t>(link.record.storedSize)};
  }
  std::uint64_t BaseOf(const Link& link) const {
    return link.form.HasBase() ? link.record.payloadOffset - link.form.baseDistance * kAlignment
                               : 0;
  }

 private:
  bool CheckRecord(const Link& link, std::uint32_t channelCount, io::Error& error) const;
  bool FollowBase(Link* link, io::Error& error);

  EType type_ = zuCacheData::eNCUnknownData;
  SampleEntry entry_;
  FileRange wanted_;
  std::array<Link, 1 + kDeepestBase> links_;
  std::size_t size_ = 0;
  std::size_t used_ = 0;             // of the bytes
  std::vector<std::uint8_t> bytes_;  // only grows
};

/// Reads arrays of one data file. Of each channel it keeps the array decoded last with those that
/// it is predicted from, at most five, so that reading in order decodes each array once. May throw
/// std::bad_alloc.
class ArrayReader {
 public:
  /// `channelCount` is that of the cache.
  void Start(std::size_t channelCount) { kept_.resize(channelCount); }
  /// Another file follows.
  void Forget();

  /// Fills `array`, straight from the file where it is stored raw.
  /// @param file  anything with the ReadAt of io::InputFile
  /// @param found the bytes of RangeOf the sample where they are in memory already, or null
  template <typename File>
  bool Fetch(const File& file, std::uint32_t channel, EType type, const SampleEntry& entry,
             const std::uint8_t* found, void* array, io::Error& error) {
    if (IsStoredRaw(type, entry)) {
      const auto size = static_cast<std::size_t>(entry.storedSize);
      return (found != nullptr ? Copy(found, size, array)
                               : file.ReadAt(entry.offset, array, size, error)) &&
             VerifyArray(type, entry, array, error);
    }
    if (Recall(channel, type, entry, array)) return true;
    for (chain_.Start(type, entry); chain_.Wanted().Size() != 0; found = nullptr) {
      const auto size = static_cast<std::size_t>(chain_.Wanted().Size());
      std::uint8_t* const room = chain_.Room();
      if (!(found != nullptr ? Copy(found, size, room)
                             : file.ReadAt(chain_.Wanted().begin, room, size, error)) ||
          !chain_.Accept(static_cast<std::uint32_t>(kept_.size()), error)) {
        return NameBase(error);
      }
      StopAtKept();
    }
    return Decode(type, entry, array, error);
  }

 private:
  struct Kept {
    std::uint64_t offset = 0;  // of its payload; 0 for none
    std::uint64_t storedSize = 0;
    std::uint32_t count = 0;
    std::uint64_t checksum = 0;  // of the array, decoded
    ArrayKeys keys;
  };
  using KeptByDepth = std::array<Kept, 1 + kDeepestBase>;

  static bool Copy(const std::uint8_t* from, std::size_t size, void* to);
  bool Recall(std::uint32_t channel, EType type, const SampleEntry& entry, void* array) const;
  const Kept* FindKept(const RecordChain::Link& link) const;
  void StopAtKept();
  bool NameBase(io::Error& error) const;
  bool Decode(EType type, const SampleEntry& entry, void* array, io::Error& error);
  bool DecodeLink(EType type, const RecordChain::Link& link, void* array, io::Error& error);

  std::vector<KeptByDepth> kept_;  // by channel
  RecordChain chain_;
  PredictedDecoder decoder_;
};

}  // namespace kelsdk::nc
