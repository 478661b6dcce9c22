#include "backends/nc/data_reader.h"

#include <algorithm>

#include "backends/io/checked.h"
#include "backends/nc/checksum.h"
#include "backends/nc/scan.h"

namespace kelsdk::nc {
namespace {

using io::Error;

bool IsSoundDirectoryEntry(const DirectoryEntry& entry, const Trailer& trailer) {
  const std::uint64_t size = std::uint64_t{entry.samples.count} * kIndexEntrySize;
  return IsElementType(entry.type) && entry.indexOffset >= trailer.dataEnd &&
         io::RangeFits(entry.indexOffset, size, trailer.directory) &&
         (entry.samples.count == 0 || ElementSize(static_cast<EType>(entry.type)) != 0) &&
         entry.samples.first <= entry.samples.last;
}

bool IsSoundIndex(std::span<const SampleEntry> samples, const DirectoryEntry& entry,
                  std::uint64_t dataEnd) {
  if (samples.empty()) return true;
  if (samples.front().tick != entry.samples.first || samples.back().tick != entry.samples.last) {
    return false;
  }
  const auto type = static_cast<EType>(entry.type);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (i > 0 && samples[i].tick <= samples[i - 1].tick) return false;
    if (!IsPlausibleArray(type, samples[i], dataEnd)) return false;
  }
  return true;
}

bool RefuseIdentity(Error& error) {
  return error.Set(Error::eDamaged,
                   "the data file belongs to another cache than the description; "
                   "recover completes a publication that was interrupted");
}

}  // namespace

bool DataReader::Open(const std::string& path, const Identity& identity, Error& error) {
  Close();
  identity_ = identity;
  if (file_.Open(path.c_str(), error) && end_.Read(file_, error)) {
    Error ignored;  // stepping through the records tells what is wrong better
    const bool isOther = end_.HasTrailer() && end_.GetTrailer().identity != identity;
    if (isOther ? RefuseIdentity(error) : LoadDirectory(ignored) || OpenByRecords(error)) {
      return true;
    }
  }
  file_.Close();
  return false;
}

void DataReader::Close() {
  file_.Close();
  samples_.Forget();
  directory_.clear();
  for (ChannelIndex& index : indices_) {
    index.loaded = false;
    index.samples.clear();
  }
  byRecords_ = false;
}

bool DataReader::LoadDirectory(Error& error) {
  if (!end_.HasTrailer()) return error.Set(Error::eDamaged, "the file lacks its trailer");
  const Trailer& trailer = end_.GetTrailer();
  const std::uint64_t size = std::uint64_t{trailer.channelCount} * kDirectoryEntrySize;
  if (trailer.dataEnd < kHeaderSize || trailer.dataEnd > trailer.directory ||
      !io::RangeFits(trailer.directory, size + kTrailerSize, file_.Size())) {
    return error.Set(Error::eDamaged, "the directory lies outside the file");
  }
  directoryBytes_.resize(static_cast<std::size_t>(size));
  if (!end_.ReadAt(file_, trailer.directory, directoryBytes_.data(), directoryBytes_.size(),
                   error)) {
    return false;
  }
  if (Checksum(directoryBytes_.data(), directoryBytes_.size()) != trailer.directoryChecksum) {
    return error.Set(Error::eDamaged, "the directory is damaged");
  }
  dataEnd_ = trailer.dataEnd;
  directory_.resize(trailer.channelCount);
  for (std::size_t i = 0; i < directory_.size(); ++i) {
    directory_[i] = LoadDirectoryEntry(directoryBytes_.data() + i * kDirectoryEntrySize);
    if (!IsSoundDirectoryEntry(directory_[i], trailer)) {
      return error.Set(Error::eDamaged, "the directory entry of channel %zu makes no sense", i);
    }
  }
  if (indices_.size() < directory_.size()) indices_.resize(directory_.size());
  return true;
}

bool DataReader::LoadIndex(std::uint32_t channel, Error& error) {
  const DirectoryEntry& entry = directory_[channel];
  std::vector<SampleEntry>& samples = indices_[channel].samples;
  samples.resize(entry.samples.count);
  const std::size_t size = samples.size() * kIndexEntrySize;
  if (!end_.ReadAt(file_, entry.indexOffset, samples.data(), size, error)) return false;
  if (Checksum(samples.data(), size) != entry.indexChecksum ||
      !IsSoundIndex(samples, entry, dataEnd_)) {
    return error.Set(Error::eDamaged, "the index of channel %u is damaged", channel);
  }
  return true;
}

bool DataReader::Index(std::uint32_t channel, std::span<const SampleEntry>* index, Error& error) {
  *index = {};
  if (channel >= directory_.size()) return true;
  if (!indices_[channel].loaded && !byRecords_) {
    indices_[channel].loaded = LoadIndex(channel, error);
    if (!indices_[channel].loaded && !OpenByRecords(error)) return false;
  }
  if (channel < directory_.size()) *index = indices_[channel].samples;
  return true;
}

bool DataReader::OpenByRecords(Error& error) {
  Scan scan;
  if (!ScanRecords(file_, file_.Size(), &scan, error)) return false;
  if (scan.header.identity != identity_) return RefuseIdentity(error);
  if (scan.blockCount == 0) {
    return error.Set(Error::eCutShort, "the data file holds no whole time block: %s",
                     scan.stop ? scan.stop.text() : "it ends after its header");
  }
  std::vector<DirectoryEntry> directory(scan.channels.size());
  std::vector<ChannelIndex> indices(scan.channels.size());
  for (std::size_t i = 0; i < directory.size(); ++i) {
    const Channel& channel = scan.channels[i];
    directory[i] = DescribeIndex(channel.type, channel.interval, scan.indices[i]);
    indices[i].samples = std::move(scan.indices[i]);
    indices[i].loaded = true;
  }
  directory_ = std::move(directory);
  indices_ = std::move(indices);
  dataEnd_ = scan.end;
  byRecords_ = true;
  return true;
}

}  // namespace kelsdk::nc
