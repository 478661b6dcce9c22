#include "backends/nc/arrays.h"

#include <algorithm>
#include <cstring>

#include "backends/nc/checksum.h"
#include "backends/nc/codec.h"

namespace kelsdk::nc {
namespace {

using io::Error;

bool IsPredicted(std::span<const std::uint8_t> stored) {
  return !stored.empty() && stored[0] == kPredictedForm;
}

}  // namespace

bool VerifyArray(EType type, const SampleEntry& entry, void* array, Error& error) {
  const auto size = static_cast<std::size_t>(ArraySize(type, entry.count));
  if (Checksum(array, size) == entry.checksum) return true;
  std::memset(array, 0, size);
  return error.Set(Error::eDamaged, "the %u elements at tick %d do not match their checksum",
                   entry.count, entry.tick);
}

void RecordChain::Start(EType type, const SampleEntry& entry) {
  type_ = type;
  entry_ = entry;
  size_ = used_ = 0;
  wanted_ = {entry.offset - kRecordHeaderSize, entry.offset + entry.storedSize};
}

std::uint8_t* RecordChain::Room() {
  const std::size_t needed = used_ + static_cast<std::size_t>(wanted_.Size()) + kDecodeSlack;
  if (bytes_.size() < needed) bytes_.resize(needed);
  return bytes_.data() + used_;
}

bool RecordChain::Accept(std::uint32_t channelCount, Error& error) {
  Link& link = links_[size_];
  link.at = used_;
  link.form = PredictedHeader();
  if (!LoadRecordHeader(bytes_.data() + used_, &link.record)) {
    return error.Set(Error::eDamaged, "no sound record at %llu",
                     static_cast<unsigned long long>(wanted_.begin));
  }
  if (!CheckRecord(link, channelCount, error)) return false;
  const std::span<const std::uint8_t> stored = StoredOf(link);
  if (Checksum(stored.data(), stored.size()) != link.record.storedChecksum) {
    return error.Set(Error::eDamaged, "the %u elements at tick %d do not match their checksum",
                     link.record.count, link.record.tick);
  }
  used_ = static_cast<std::size_t>(AlignUp(used_ + wanted_.Size()));
  ++size_;
  wanted_ = FileRange();
  link.isRaw = link.record.storedSize == ArraySize(type_, link.record.count);
  return link.isRaw || FollowBase(&link, error);
}

// The record is the one that the index, or the record that stands on it, speaks of.
bool RecordChain::CheckRecord(const Link& link, std::uint32_t channelCount, Error& error) const {
  const RecordHeader& record = link.record;
  const bool isWanted = record.kind == eArrayRecord && record.count == entry_.count &&
                        record.type == static_cast<std::uint32_t>(type_) &&
                        record.payloadOffset == wanted_.begin + kRecordHeaderSize &&
                        record.storedSize == wanted_.end - record.payloadOffset &&
                        record.channel < channelCount &&
                        (size_ == 0 || record.channel == links_[0].record.channel);
  if (isWanted) return true;
  return error.Set(Error::eDamaged, "the record at %llu is none of %u elements of this channel",
                   static_cast<unsigned long long>(wanted_.begin), entry_.count);
}

bool RecordChain::FollowBase(Link* link, Error& error) {
  if (!IsPredicted(StoredOf(*link))) {
    return size_ == 1 ||
           error.Set(Error::eDamaged, "the array at tick %d can be no base", link->record.tick);
  }
  io::ByteReader in(StoredOf(*link).data(), StoredOf(*link).size());
  KeyRule rule;
  Predictions predictions;
  if (!LoadPredictedHeader(in, &link->form, &rule, &predictions)) {
    return error.Set(Error::eDamaged, "the array at tick %d is in no form that is served",
                     link->record.tick);
  }
  // Each depth is below that of the array before: there are no circles, and few steps.
  if (size_ > 1 && link->form.depth >= links_[size_ - 2].form.depth) {
    return error.Set(Error::eDamaged, "the array at tick %d is too deep for a base",
                     link->record.tick);
  }
  if (!link->form.HasBase()) return true;
  const std::uint64_t own = link->record.payloadOffset;
  const std::uint64_t distance = link->form.baseDistance * kAlignment;
  const std::uint64_t size = link->form.baseStoredSize;
  if (distance > own - kHeaderSize - kRecordHeaderSize || size + kRecordHeaderSize > distance) {
    return error.Set(Error::eDamaged, "the array at tick %d has no base where it says",
                     link->record.tick);
  }
  wanted_ = {own - distance - kRecordHeaderSize, own - distance + size};
  return true;
}

void ArrayReader::Forget() {
  for (KeptByDepth& channel : kept_) {
    for (Kept& kept : channel) kept.offset = 0;
  }
}

bool ArrayReader::Copy(const std::uint8_t* from, std::size_t size, void* to) {
  if (size != 0) std::memcpy(to, from, size);
  return true;
}

// An array that has just been decoded, for whoever asks again.
bool ArrayReader::Recall(std::uint32_t channel, EType type, const SampleEntry& entry,
                         void* array) const {
  for (const Kept& kept : kept_[channel]) {
    if (kept.offset != entry.offset || kept.count != entry.count ||
        kept.checksum != entry.checksum) {
      continue;
    }
    ArrayOfKeys(type, kept.keys, kept.count, array);
    return true;
  }
  return false;
}

const ArrayReader::Kept* ArrayReader::FindKept(const RecordChain::Link& link) const {
  const std::uint64_t base = chain_.BaseOf(link);
  const KeptByDepth& all = kept_[link.record.channel];
  const auto* const end = all.begin() + link.form.depth;
  const auto* const found = std::find_if(all.begin(), end, [&](const Kept& kept) {
    return base != 0 && kept.offset == base && kept.count == link.record.count &&
           kept.storedSize == link.form.baseStoredSize;
  });
  return found != end ? found : nullptr;
}

void ArrayReader::StopAtKept() {
  if (FindKept(chain_[chain_.Size() - 1]) != nullptr) chain_.Stop();
}

// Tells the sample that cannot be read because of another.
bool ArrayReader::NameBase(Error& error) const {
  if (chain_.Size() == 0) return false;
  const Error reason = error;
  return error.Set(reason.kind(), "the %u elements at tick %d stand on others: %.160s",
                   chain_[0].record.count, chain_[0].record.tick, reason.text());
}

bool ArrayReader::Decode(EType type, const SampleEntry& entry, void* array, Error& error) {
  for (std::size_t i = chain_.Size(); i-- > 0;) {
    if (DecodeLink(type, chain_[i], i == 0 ? array : nullptr, error)) continue;
    std::memset(array, 0, static_cast<std::size_t>(ArraySize(type, entry.count)));
    return i != 0 && NameBase(error);
  }
  if (VerifyArray(type, entry, array, error)) return true;
  kept_[chain_[0].record.channel][chain_[0].form.depth].offset = 0;
  return false;
}

bool ArrayReader::DecodeLink(EType type, const RecordChain::Link& link, void* array, Error& error) {
  const std::span<const std::uint8_t> stored = chain_.StoredOf(link);
  const std::uint32_t count = link.record.count;
  if (!link.isRaw && !IsPredicted(stored)) {
    return DecodeArray(type, stored.data(), stored.size(), array, count, error);
  }
  const Kept* const base = FindKept(link);
  Kept& place = kept_[link.record.channel][link.form.depth];
  place.offset = 0;
  place.storedSize = link.record.storedSize;
  place.count = count;
  place.checksum = link.record.checksum;
  if (link.isRaw) {
    KeysOfRaw(type, stored.data(), count, &place.keys);
  } else if (!decoder_.Decode(type, stored, count, base != nullptr ? &base->keys : nullptr, array,
                              &place.keys, error)) {
    return false;
  }
  place.offset = link.record.payloadOffset;
  return true;
}

}  // namespace kelsdk::nc
