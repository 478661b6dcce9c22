#include "backends/nc/writer.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "backends/nc/arrays.h"
#include "backends/nc/checksum.h"
#include "backends/nc/codec.h"
#include "backends/nc/file_ends.h"
#include "backends/nc/owners.h"

namespace kelsdk::nc {
namespace {

using io::Error;

// Room in an index from the start, so that what is written most seldom reallocates.
constexpr std::size_t kIndexReserve = 1024;

// "Frame", a tick, "Tick", a tick, the tag.
constexpr std::size_t kLongestNameEnding = 48;

bool MakeIdentity(Identity* identity, Error& error) {
  if (::getrandom(identity->data(), identity->size(), 0) ==
      static_cast<ssize_t>(identity->size())) {
    return true;
  }
  return error.SetSystem(errno, "no random identity");
}

std::uint64_t Now() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count());
}

// 0 in `latest` means none: no array stands at the start of a file.
bool IsRepeat(const SampleEntry& latest, const SampleEntry& entry) {
  return latest.offset != 0 && latest.count == entry.count && latest.checksum == entry.checksum;
}

FileHeader HeaderOf(const Description& description) {
  FileHeader header;
  header.identity = description.identity;
  header.created = description.created;
  header.SetLayout(description);
  return header;
}

}  // namespace

CacheWriter::~CacheWriter() {
  if (!holdsData_ && !failure_) Discard();
}

void CacheWriter::Discard() {
  if (partial_.folder.empty()) return;
  try {
    DiscardPartial(&partial_);
    partial_.folder.clear();
  } catch (const std::bad_alloc&) {
    // Without memory the folder stays.
  }
}

bool CacheWriter::Begin(const CacheName& name, const FileLayout& layout, Error& error) {
  if (!CheckPlacesAhead(name, layout, error)) return false;
  description_.SetLayout(layout);
  description_.created = Now();
  if (!MakeIdentity(&description_.identity, error)) return false;
  Partial partial;
  if (!CreatePartial(name, description_.identity, &partial, error)) return false;
  partial_ = std::move(partial);
  fileName_.reserve(name.base.size() + kLongestNameEnding);
  path_.reserve(partial_.folder.size() + fileName_.capacity());
  if (layout.isPerFrame) {
    fileTimes_.reserve(kIndexReserve);
    return true;
  }
  Files().Name(0, &fileName_);
  return data_.Create(partial_.folder + fileName_, HeaderOf(description_), error);
}

bool CacheWriter::AddChannel(const char* name, const char* interpretation, EType type,
                             std::uint32_t interval, std::uint32_t* index, Error& error) {
  if (!CanWrite(error) || !CheckChannelTexts(name, interpretation, error)) return false;
  if (!IsElementType(static_cast<std::uint32_t>(type))) {
    return error.Set(Error::eRefused, "element type %d is unknown", static_cast<int>(type));
  }
  for (const Channel& channel : description_.channels) {
    if (channel.name == name) {
      return error.Set(Error::eRefused, "there is a channel \"%.64s\" already", name);
    }
  }
  Channel channel;
  channel.name = name;
  channel.interpretation = interpretation;
  channel.type = type;
  channel.interval = interval;
  std::vector<SampleEntry> samples;
  samples.reserve(kIndexReserve);
  const std::size_t count = description_.channels.size();
  description_.channels.reserve(count + 1);
  latest_.reserve(count + 1);
  coders_.reserve(count + 1);
  indices_.reserve(count + 1);
  frameIndices_.resize(count + 1);
  description_.channels.push_back(std::move(channel));
  latest_.emplace_back();
  coders_.emplace_back();
  arrays_.Start(count + 1);
  indices_.push_back(std::move(samples));
  *index = static_cast<std::uint32_t>(count);
  return true;
}

bool CacheWriter::SetMaximumError(std::uint32_t channel, double maximumError, Error& error) {
  if (!CanWrite(error)) return false;
  Channel& of = description_.channels[channel];
  if (channel < everDeclared_) {
    return error.Set(Error::eRefused, "channel %u may have arrays already", channel);
  }
  if (!CheckMaximumError(description_, of.type, maximumError, error)) return false;
  of.maximumError = maximumError;
  return true;
}

bool CacheWriter::CanWrite(Error& error) const {
  if (!failure_) return true;
  error = failure_;
  return false;
}

bool CacheWriter::Fail(const Error& error) {
  failure_ = error;
  return false;
}

// Stands while a step is under way that must not be left half done, and is cleared behind it: what
// running out of memory interrupts counts as failed.
void CacheWriter::ArmFailure() {
  failure_.Set(Error::eNoMemory, "writing was interrupted for lack of memory");
}

bool CacheWriter::BeginBlock(std::int32_t tick, Error& error) {
  if (!CanWrite(error) || !EndBlock(error)) return false;
  inBlock_ = true;
  blockTick_ = tick;
  blockArrays_ = 0;
  return true;
}

bool CacheWriter::CheckSample(std::uint32_t channel, std::int32_t tick, Error& error) const {
  if (!CanWrite(error)) return false;
  if (!inBlock_) return error.Set(Error::eRefused, "no time block is open");
  if (channel >= description_.channels.size()) {
    return error.Set(Error::eRefused, "channel %u of %zu", channel, description_.channels.size());
  }
  if (tick != blockTick_) {
    return error.Set(Error::eRefused, "an array of tick %d in the time block of tick %d", tick,
                     blockTick_);
  }
  if (ElementSize(description_.channels[channel].type) != 0) return true;
  return error.Set(Error::eRefused, "channel %u is of a type that holds no arrays", channel);
}

// What can run out of memory comes before the file changes.
bool CacheWriter::PrepareSample(std::uint32_t channel, Error& error) {
  std::vector<SampleEntry>& index = indices_[channel];
  if (index.size() == index.capacity()) index.reserve(2 * index.capacity());
  if (!OpenForBlock(error)) return Fail(error);
  DeclareChannels();
  return true;
}

void CacheWriter::NoteSample(std::uint32_t channel, const SampleEntry& entry) {
  latest_[channel] = entry;
  holdsData_ = true;
  ++blockArrays_;
  InsertSample(&indices_[channel], entry);
}

bool CacheWriter::AddArray(std::uint32_t channel, std::int32_t tick, const void* array,
                           std::uint32_t count, Error& error) {
  if (!CheckSample(channel, tick, error)) return false;
  if (array == nullptr && count != 0) return error.Set(Error::eRefused, "no array is given");
  const EType type = description_.channels[channel].type;
  SampleEntry entry;
  entry.tick = tick;
  entry.count = count;
  if (!PrepareSample(channel, error)) return false;
  encoded_ = {};
  const bool moves = description_.channels[channel].maximumError != 0;
  if (moves) array = Encode(channel, array, count);
  entry.checksum = Checksum(array, static_cast<std::size_t>(ArraySize(type, count)));
  const SampleEntry& latest = latest_[channel];
  if (!description_.isPerFrame && IsRepeat(latest, entry)) {
    entry.offset = latest.offset;
    entry.storedSize = latest.storedSize;
    data_.AddRepeat(channel, type, entry);
  } else {
    if (!moves) Encode(channel, array, count);
    if (!StoreArray(channel, array, &entry, error)) return Fail(error);
  }
  NoteSample(channel, entry);
  return true;
}

bool CacheWriter::AddRepeat(std::uint32_t channel, std::int32_t tick, std::uint32_t ofChannel,
                            std::int32_t ofTick, Error& error) {
  if (!CheckSample(channel, tick, error)) return false;
  const std::vector<Channel>& channels = description_.channels;
  if (ofChannel >= channels.size() || channels[ofChannel].type != channels[channel].type ||
      (description_.isPerFrame && ofTick != tick)) {
    return error.Set(Error::eRefused, "channel %u can not repeat channel %u there", channel,
                     ofChannel);
  }
  const SampleEntry* const repeated = FindEntry(indices_[ofChannel], ofTick);
  if (repeated == nullptr) {
    return error.Set(Error::eRefused, "channel %u has nothing at tick %d", ofChannel, ofTick);
  }
  SampleEntry entry = *repeated;
  entry.tick = tick;
  if (!PrepareSample(channel, error)) return false;
  data_.AddRepeat(channel, channels[channel].type, entry);
  NoteSample(channel, entry);
  return true;
}

// Encodes an array in the cache's form and gives the array that is read from it.
const void* CacheWriter::Encode(std::uint32_t channel, const void* array, std::uint32_t count) {
  const Channel& of = description_.channels[channel];
  if (description_.encoding == eBytePlanes) {
    std::size_t size = 0;
    if (EncodeArray(of.type, array, count, &bytePlanes_, &size))
      encoded_ = {bytePlanes_.data(), size};
  } else if (description_.encoding == ePredicted) {
    const std::uint64_t offset = data_.End() + kRecordHeaderSize;
    if (coders_[channel].Encode(&predicted_, of.type, array, count, of.maximumError, offset,
                                description_.isPerFrame)) {
      encoded_ = predicted_.Stored();
    }
    return predicted_.Decoded();
  }
  return array;
}

bool CacheWriter::StoreArray(std::uint32_t channel, const void* array, SampleEntry* entry,
                             Error& error) {
  const EType type = description_.channels[channel].type;
  if (!data_.AddArray(channel, type, array, encoded_.empty() ? nullptr : encoded_.data(),
                      encoded_.size(), entry, error)) {
    return false;
  }
  if (description_.encoding == ePredicted && !description_.isPerFrame) {
    coders_[channel].NoteWritten(entry->offset, entry->storedSize);
  }
  return true;
}

// The single data file is always open; a frame's is opened with its first array.
bool CacheWriter::OpenForBlock(Error& error) {
  if (data_.IsOpen()) return true;
  const int tick = blockTick_;
  Files().NameAt(tick, &fileName_);
  path_.assign(partial_.folder).append(fileName_);
  declared_ = 0;
  blockCount_ = 0;
  const auto place = std::lower_bound(fileTimes_.begin(), fileTimes_.end(), tick);
  if (place != fileTimes_.end() && *place == tick) return ReopenFrame(error);
  fileTimes_.insert(place, tick);
  return data_.Create(path_, HeaderOf(description_), error);
}

bool CacheWriter::ReopenFrame(Error& error) {
  io::InputFile file;
  if (!file.Open(path_.c_str(), error)) return false;
  FileEnd end;
  if (!end.Read(file, error) || !end.HasTrailer() ||
      end.GetTrailer().identity != description_.identity) {
    return error.Set(Error::eDamaged, "the frame's file has been changed by others");
  }
  file.Close();
  declared_ = end.GetTrailer().channelCount;
  blockCount_ = end.GetTrailer().blockCount;
  return data_.Reopen(path_, description_, end.GetTrailer().dataEnd, error);
}

void CacheWriter::DeclareChannels() {
  for (; declared_ < description_.channels.size(); ++declared_) {
    data_.AddChannel(declared_, description_.channels[declared_]);
  }
  everDeclared_ = std::max(everDeclared_, declared_);
}

bool CacheWriter::EndBlock(Error& error) {
  if (!CanWrite(error)) return false;
  if (!inBlock_) return true;
  inBlock_ = false;
  if (blockArrays_ == 0) return true;
  ArmFailure();
  ++blockCount_;
  const bool ended = description_.isPerFrame ? FinishFrame(error)
                                             : data_.EndBlock(blockTick_, blockArrays_, error);
  if (!ended) return Fail(error);
  failure_.Clear();
  return true;
}

bool CacheWriter::FinishFrame(Error& error) {
  for (std::size_t i = 0; i < indices_.size(); ++i) {
    frameIndices_[i].clear();
    const SampleEntry* const entry = FindEntry(indices_[i], blockTick_);
    if (entry != nullptr) frameIndices_[i].push_back(*entry);
  }
  DeclareChannels();
  return data_.EndBlock(blockTick_, blockArrays_, error) &&
         data_.Finish(description_.channels, frameIndices_, description_.identity, blockCount_,
                      error) &&
         data_.Close(error);
}

bool CacheWriter::FinishSingle(Error& error) {
  // A block of no arrays makes whole what channels were declared since the last one.
  if (declared_ < description_.channels.size() || blockCount_ == 0) {
    DeclareChannels();
    ++blockCount_;
    if (!data_.EndBlock(0, 0, error)) return false;
  }
  return data_.Finish(description_.channels, indices_, description_.identity, blockCount_, error) &&
         data_.Close(error);
}

bool CacheWriter::Finish(Partial* partial, Description* description, Error& error) {
  if (!EndBlock(error)) return false;
  ArmFailure();
  if (!description_.isPerFrame && !FinishSingle(error)) return Fail(error);
  if (description_.isPerFrame) {
    DescribeTimes(Times(fileTimes_), std::vector<Times>(indices_.begin(), indices_.end()),
                  &description_);
  }
  *partial = std::move(partial_);
  *description = std::move(description_);
  partial_.folder.clear();
  return true;
}

Extent CacheWriter::ExtentOf(std::uint32_t channel) const {
  return Times(indices_[channel]).ToExtent();
}

bool CacheWriter::TimesOf(std::uint32_t channel, Times* times, Error&) {
  *times = Times(indices_[channel]);
  return true;
}

bool CacheWriter::Locate(std::uint32_t channel, std::uint32_t sample, SampleEntry* entry, Error&) {
  *entry = indices_[channel][sample];
  return true;
}

bool CacheWriter::Fetch(std::uint32_t channel, const SampleEntry& entry, std::int32_t, void* array,
                        Error& error) {
  const EType type = description_.channels[channel].type;
  if (!description_.isPerFrame) {
    return arrays_.Fetch(data_, channel, type, entry, nullptr, array, error);
  }
  arrays_.Forget();
  if (data_.IsOpen() && entry.tick == blockTick_) {
    return arrays_.Fetch(data_, channel, type, entry, nullptr, array, error);
  }
  Files().NameAt(entry.tick, &fileName_);
  path_.assign(partial_.folder).append(fileName_);
  io::InputFile file;
  return file.Open(path_.c_str(), error) &&
         arrays_.Fetch(file, channel, type, entry, nullptr, array, error);
}

}  // namespace kelsdk::nc
