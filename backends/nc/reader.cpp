#include "backends/nc/reader.h"

#include <algorithm>

namespace kelsdk::nc {
namespace {

using io::Error;

bool NameFile(const std::string& name, Error& error) {
  const Error reason = error;
  return error.Set(reason.kind(), "%.100s: %s", name.c_str(), reason.text());
}

}  // namespace

bool CacheReader::Open(const CacheName& name, Error& error) {
  name_ = name;
  if (!ReadDescription(name.DescriptionPath(), &description_, error)) return false;
  prefetch_.Start(description_.channels.size());
  arrays_.Start(description_.channels.size());
  if (!description_.isPerFrame) return OpenSingle(error);
  for (const Channel& channel : description_.channels) {
    extents_.push_back(Times(description_.TimesOf(channel)).ToExtent());
  }
  return true;
}

bool CacheReader::OpenSingle(Error& error) {
  Files().Name(0, &fileName_);
  path_ = name_.folder + fileName_;
  if (data_.Open(path_, description_.identity, error) && CheckAgainstDescription(error)) {
    return true;
  }
  return NameFile(fileName_, error);
}

bool CacheReader::CheckAgainstDescription(Error& error) const {
  const std::vector<DirectoryEntry>& directory = data_.Directory();
  if (directory.size() > description_.channels.size()) {
    return error.Set(Error::eDamaged, "%zu channels in the data file, %zu in the description",
                     directory.size(), description_.channels.size());
  }
  for (std::size_t i = 0; i < directory.size(); ++i) {
    const auto described = static_cast<std::uint32_t>(description_.channels[i].type);
    if (directory[i].type != described) {
      return error.Set(Error::eDamaged,
                       "channel %zu is %s in the data file and %s in the description", i,
                       kElementTypes[directory[i].type].name, kElementTypes[described].name);
    }
  }
  return true;
}

Extent CacheReader::ExtentOf(std::uint32_t channel) const {
  if (description_.isPerFrame) return extents_[channel];
  return channel < data_.Directory().size() ? data_.Directory()[channel].samples : Extent();
}

bool CacheReader::TimesOf(std::uint32_t channel, Times* times, Error& error) {
  if (description_.isPerFrame) {
    *times = Times(description_.TimesOf(description_.channels[channel]));
    return true;
  }
  std::span<const SampleEntry> index;
  if (!data_.Index(channel, &index, error)) return false;
  *times = Times(index);
  return true;
}

bool CacheReader::OpenFrame(std::int32_t tick, Error& error) {
  if (openTick_ == tick) return true;
  openTick_.reset();  // until the file is open and checked, whatever throws before that
  prefetch_.Clear();
  arrays_.Forget();
  Files().NameAt(tick, &fileName_);
  path_.assign(name_.folder).append(fileName_);
  if (data_.Open(path_, description_.identity, error) && CheckAgainstDescription(error)) {
    openTick_ = tick;
    return true;
  }
  data_.Close();
  return NameFile(fileName_, error);
}

bool CacheReader::Locate(std::uint32_t channel, std::uint32_t sample, SampleEntry* entry,
                         Error& error) {
  if (!description_.isPerFrame) {
    std::span<const SampleEntry> index;
    if (!data_.Index(channel, &index, error)) return false;
    *entry = index[sample];
    return true;
  }
  const std::int32_t tick = description_.TimesOf(description_.channels[channel]).At(sample);
  if (!OpenFrame(tick, error)) return false;
  if (EntryAt(channel, tick, entry)) return true;
  error.Set(Error::eDamaged, "no sample of channel %u at tick %d in it", channel, tick);
  return NameFile(fileName_, error);
}

// The sample of exactly that time in the open data file.
bool CacheReader::EntryAt(std::uint32_t channel, std::int32_t tick, SampleEntry* entry) {
  std::span<const SampleEntry> index;
  Error ignored;
  if (!data_.Index(channel, &index, ignored)) return false;
  const SampleEntry* const found = FindEntry(index, tick);
  if (found != nullptr) *entry = *found;
  return found != nullptr;
}

bool CacheReader::SumArrays(std::uint64_t* arrayBytes, std::uint64_t* storedBytes, Error& error) {
  struct Array {
    std::uint64_t offset, size, storedSize;
  };
  std::vector<Array> arrays;
  for (std::uint32_t channel = 0; channel < description_.channels.size(); ++channel) {
    std::span<const SampleEntry> index;
    if (!data_.Index(channel, &index, error)) return false;
    for (const SampleEntry& entry : index) {
      arrays.push_back({entry.offset, ArraySize(TypeOf(channel), entry.count), entry.storedSize});
    }
  }
  std::sort(arrays.begin(), arrays.end(),
            [](const Array& a, const Array& b) { return a.offset < b.offset; });
  const auto end = std::unique(arrays.begin(), arrays.end(),
                               [](const Array& a, const Array& b) { return a.offset == b.offset; });
  *arrayBytes = *storedBytes = 0;
  for (auto array = arrays.begin(); array != end; ++array) {
    *arrayBytes += array->size;
    *storedBytes += array->storedSize;
  }
  return true;
}

bool CacheReader::Fetch(std::uint32_t channel, const SampleEntry& entry, std::int32_t tick,
                        void* array, Error& error) {
  const EType type = TypeOf(channel);
  const FileRange own = RangeOf(type, entry);
  const io::SampleStream arrays = data_.Arrays(channel);
  prefetch_.NoteRead(channel, tick);
  const std::uint8_t* found = nullptr;
  if (prefetches_ && !arrays.Holds(own.begin, own.Size())) {
    found = prefetch_.Find(own);
    const FileRange range = found != nullptr ? own : ChooseRange(channel, entry, own);
    if (range.Size() > own.Size()) {
      void* const straight = IsStoredRaw(type, entry) ? array : nullptr;
      if (!prefetch_.Read(arrays, range, own, straight, error)) return false;
      if (straight != nullptr) return VerifyArray(type, entry, array, error);
      found = prefetch_.Find(own);
    }
  }
  return arrays_.Fetch(arrays, channel, type, entry, found, array, error);
}

// The bytes of this array and of those near it that are due.
FileRange CacheReader::ChooseRange(std::uint32_t channel, const SampleEntry& entry,
                                   const FileRange& own) {
  if (!Prefetch::IsWorthwhile(own)) return own;
  prefetch_.ForgetOffers();
  for (std::uint32_t other = 0; other < description_.channels.size(); ++other) {
    SampleEntry due;
    if (other != channel && prefetch_.IsDue(other) && EntryAt(other, entry.tick, &due)) {
      prefetch_.Offer(RangeOf(TypeOf(other), due));
    }
  }
  return prefetch_.RangeAround(own);
}

}  // namespace kelsdk::nc
