#include "backends/nc/scan.h"

#include <algorithm>
#include <string>

#include "backends/io/checked.h"
#include "backends/io/endian.h"
#include "backends/nc/checksum.h"
#include "backends/nc/file_ends.h"

namespace kelsdk::nc {
namespace {

using io::Error;

bool IsKind(std::uint32_t kind) {
  return kind == eChannelRecord || kind == eArrayRecord || kind == eRepeatRecord ||
         kind == eBlockEndRecord;
}

// Gathers the samples of a block until its end shows that it is whole.
class Assembler {
 public:
  Assembler(const io::InputFile& file, Scan* scan)
      : file_(file),
        scan_(*scan),
        boundSize_(scan->header.encoding == ePredicted ? sizeof(double) : 0) {}

  bool Take(const RecordHeader& header, std::uint64_t recordEnd, Error& error) {
    switch (header.kind) {
      case eChannelRecord: return TakeChannel(header, error);
      case eBlockEndRecord: return EndBlock(header, recordEnd, error);
      default: return TakeSample(header, error);
    }
  }

  // Drops what came after the last whole block and puts the samples into order.
  void Finish() {
    scan_.channels.resize(wholeChannels_);
    scan_.indices.resize(wholeChannels_);
    for (std::vector<SampleEntry>& index : scan_.indices) OrderSamples(&index);
  }

 private:
  bool TakeChannel(const RecordHeader& header, Error& error) {
    if (header.channel != scan_.channels.size() || header.count > header.storedSize ||
        header.storedSize - header.count < boundSize_ ||
        header.storedSize > std::uint64_t{2} * kLongestText + boundSize_ ||
        !IsElementType(header.type)) {
      return error.Set(Error::eDamaged, "channel record %u makes no sense", header.channel);
    }
    std::string text(static_cast<std::size_t>(header.storedSize), '\0');
    if (!file_.ReadAt(header.payloadOffset, text.data(), text.size(), error)) return false;
    if (Checksum(text.data(), text.size()) != header.checksum) {
      return error.Set(Error::eDamaged, "the texts of channel %u are damaged", header.channel);
    }
    Channel channel;
    channel.name = text.substr(0, header.count);
    channel.interpretation = text.substr(header.count, text.size() - header.count - boundSize_);
    if (boundSize_ != 0) {
      channel.maximumError = io::LoadLittle<double>(text.data() + text.size() - boundSize_);
    }
    channel.type = static_cast<EType>(header.type);
    channel.interval = header.interval;
    if (channel.maximumError != 0 &&
        !CheckMaximumError(scan_.header, channel.type, channel.maximumError, error)) {
      return false;
    }
    scan_.channels.push_back(std::move(channel));
    scan_.indices.emplace_back();
    return true;
  }

  bool TakeSample(const RecordHeader& header, Error& error) {
    const SampleEntry entry{header.tick, header.count, header.payloadOffset, header.storedSize,
                            header.checksum};
    if (header.channel >= scan_.channels.size() ||
        header.type != static_cast<std::uint32_t>(scan_.channels[header.channel].type) ||
        !IsPlausibleArray(scan_.channels[header.channel].type, entry, file_.Size())) {
      return error.Set(Error::eDamaged, "array record of channel %u makes no sense",
                       header.channel);
    }
    if (header.kind == eArrayRecord) {
      arrays_.push_back({header.type, entry});
    } else if (!IsRepeatOfArray(header.type, entry)) {
      return error.Set(Error::eDamaged, "a repeat in channel %u of no earlier array",
                       header.channel);
    }
    block_.push_back({header.channel, entry});
    return true;
  }

  // Arrays come in the order of their offsets.
  bool IsRepeatOfArray(std::uint32_t type, const SampleEntry& entry) const {
    const auto array = std::lower_bound(
        arrays_.begin(), arrays_.end(), entry.offset,
        [](const StoredArray& one, std::uint64_t offset) { return one.entry.offset < offset; });
    return array != arrays_.end() && array->type == type && array->entry.offset == entry.offset &&
           array->entry.storedSize == entry.storedSize && array->entry.count == entry.count &&
           array->entry.checksum == entry.checksum;
  }

  bool EndBlock(const RecordHeader& header, std::uint64_t recordEnd, Error& error) {
    const bool oneTime = std::all_of(block_.begin(), block_.end(), [&header](const Taken& taken) {
      return taken.entry.tick == header.tick;
    });
    if (!oneTime || header.count != block_.size()) {
      return error.Set(Error::eDamaged, "a time block of %u arrays holds %zu", header.count,
                       block_.size());
    }
    for (const Taken& taken : block_) scan_.indices[taken.channel].push_back(taken.entry);
    block_.clear();
    wholeChannels_ = scan_.channels.size();
    ++scan_.blockCount;
    scan_.end = recordEnd;
    return true;
  }

  // Of several samples of one time the one written last stays.
  static void OrderSamples(std::vector<SampleEntry>* index) {
    const auto byTime = [](const SampleEntry& a, const SampleEntry& b) { return a.tick < b.tick; };
    if (!std::is_sorted(index->begin(), index->end(), byTime)) {
      std::stable_sort(index->begin(), index->end(), byTime);
    }
    std::size_t kept = 0;
    for (const SampleEntry& entry : *index) {
      if (kept > 0 && (*index)[kept - 1].tick == entry.tick) --kept;
      (*index)[kept++] = entry;
    }
    index->resize(kept);
  }

  struct Taken {
    std::uint32_t channel;
    SampleEntry entry;
  };
  struct StoredArray {
    std::uint32_t type;
    SampleEntry entry;
  };

  const io::InputFile& file_;
  Scan& scan_;
  std::size_t boundSize_;  // bytes of a channel's maximum error
  std::size_t wholeChannels_ = 0;
  std::vector<Taken> block_;
  std::vector<StoredArray> arrays_;
};

}  // namespace

bool RecordScanner::Next(RecordHeader* header, Error& error) {
  error.Clear();
  if (position_ >= end_) return false;
  std::uint8_t bytes[kRecordHeaderSize];
  const auto at = static_cast<unsigned long long>(position_);
  if (!io::RangeFits(position_, kRecordHeaderSize, end_)) {
    return error.Set(Error::eCutShort, "the record at %llu is cut short", at);
  }
  if (!file_.ReadAt(position_, bytes, sizeof bytes, error)) return false;
  if (!LoadRecordHeader(bytes, header) || !IsKind(header->kind)) {
    return error.Set(Error::eDamaged, "no sound record at %llu", at);
  }
  std::uint64_t next = position_ + kRecordHeaderSize;
  if (header->kind == eArrayRecord || header->kind == eChannelRecord) {
    // Rounding up to the alignment cannot wrap for what fits a file.
    if (header->payloadOffset != next || !io::RangeFits(next, header->storedSize, end_) ||
        AlignUp(next + header->storedSize) > end_) {
      return error.Set(Error::eCutShort, "the record at %llu claims %llu bytes, %llu are left", at,
                       static_cast<unsigned long long>(header->storedSize),
                       static_cast<unsigned long long>(end_ - next));
    }
    next = AlignUp(next + header->storedSize);
  }
  position_ = next;
  return true;
}

bool ScanRecords(const io::InputFile& file, std::uint64_t end, Scan* scan, Error& error,
                 RecordVisitor* visitor) {
  *scan = Scan();
  if (!ReadFileHeader(file, &scan->header, error)) return false;
  RecordScanner scanner(file, end);
  scan->end = kHeaderSize;
  Assembler assembler(file, scan);
  RecordHeader header;
  std::uint64_t start = scanner.Position();
  while (scanner.Next(&header, scan->stop) &&
         assembler.Take(header, scanner.Position(), scan->stop)) {
    if (visitor != nullptr) visitor->Visit(header, start);
    start = scanner.Position();
  }
  assembler.Finish();
  return true;
}

}  // namespace kelsdk::nc
