#include "backends/nc/verify.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "backends/nc/arrays.h"
#include "backends/nc/checksum.h"
#include "backends/nc/data_files.h"
#include "backends/nc/data_reader.h"
#include "backends/nc/file_ends.h"
#include "backends/nc/scan.h"

namespace kelsdk::nc {
namespace {

using io::Error;

// A description can claim any number of files in one line.
constexpr std::uint32_t kMostBrokenFiles = 1000;

bool IsZero(std::span<const std::uint8_t> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

// The place of one data file among all, for telling how much is done.
class Share {
 public:
  Share(const io::Report& report, std::uint32_t file, std::uint32_t files)
      : report_(report), file_(file), files_(files) {}

  bool Proceed(std::uint64_t done, std::uint64_t size) const {
    constexpr std::uint64_t kParts = 1000;  // of a file
    const double part = size != 0 ? double(done) / double(size) : 0;
    return report_.Proceed(file_ * kParts + static_cast<std::uint64_t>(part * kParts),
                           files_ * kParts);
  }

 private:
  const io::Report& report_;
  std::uint64_t file_;
  std::uint64_t files_;
};

// Collects the problems of one data file.
class Problems {
 public:
  Problems(const io::Report& report, const std::string& fileName)
      : report_(report), fileName_(fileName) {}

  bool None() const { return count_ == 0; }
  void Add(const Error& error) {
    ++count_;
    report_.Say("%s: %s", fileName_.c_str(), error.text());
  }
  void Add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    std::va_list arguments;
    va_start(arguments, format);
    char text[256];
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    Error error;
    error.Set(Error::eDamaged, "%s", text);
    Add(error);
  }

 private:
  const io::Report& report_;
  const std::string& fileName_;
  int count_ = 0;
};

// Reads the payload of every record: stored form, padding and the array.
class PayloadChecker : public RecordVisitor {
 public:
  PayloadChecker(const io::InputFile& file, std::size_t channelCount, Problems* problems,
                 const Share& share)
      : file_(file), channelCount_(channelCount), problems_(*problems), share_(share) {
    arrays_.Start(channelCount);
  }

  void Visit(const RecordHeader& header, std::uint64_t headerOffset) override {
    if (header.kind != eArrayRecord && header.kind != eChannelRecord) return;
    if (ended_) return;
    if (!share_.Proceed(headerOffset, file_.Size())) {
      ended_ = true;
      problems_.Add("ended before all was read");
      return;
    }
    const std::uint64_t end = header.payloadOffset + header.storedSize;
    const auto storedSize = static_cast<std::size_t>(header.storedSize);
    const auto size = static_cast<std::size_t>(AlignUp(end) - header.payloadOffset);
    if (stored_.size() < size) stored_.resize(size);
    Error error;
    if (!file_.ReadAt(header.payloadOffset, stored_.data(), size, error)) {
      problems_.Add(error);
      return;
    }
    const auto at = static_cast<unsigned long long>(headerOffset);
    if (Checksum(stored_.data(), storedSize) != header.storedChecksum) {
      const bool isArray = header.kind == eArrayRecord;
      problems_.Add("the record at %llu%s does not match its stored checksum", at,
                    isArray ? (", of tick " + std::to_string(header.tick) + ",").c_str() : "");
    } else if (header.kind == eArrayRecord) {
      CheckArray(header);
    }
    if (!IsZero({stored_.data() + storedSize, size - storedSize})) {
      problems_.Add("the padding of the record at %llu is not zero", at);
    }
  }

 private:
  void CheckArray(const RecordHeader& header) {
    const auto type = static_cast<EType>(header.type);
    const SampleEntry entry{header.tick, header.count, header.payloadOffset, header.storedSize,
                            header.checksum};
    const auto size = static_cast<std::size_t>(ArraySize(type, header.count));
    if (array_.size() < size) array_.resize(size);
    Error error;
    if (IsStoredRaw(type, entry)) {
      VerifyArray(type, entry, stored_.data(), error);
    } else if (header.channel < channelCount_) {
      arrays_.Fetch(file_, header.channel, type, entry, nullptr, array_.data(), error);
    }
    if (error) problems_.Add(error);
  }

  const io::InputFile& file_;
  std::size_t channelCount_;  // of the description; others are a problem of their own
  Problems& problems_;
  ArrayReader arrays_;
  const Share& share_;
  bool ended_ = false;
  std::vector<std::uint8_t> stored_;
  std::vector<std::uint8_t> array_;
};

// One data file against its records, its indices and the description.
class FileVerifier {
 public:
  FileVerifier(const CacheName& name, const Description& description, const io::Report& report)
      : name_(name), description_(description), report_(report) {}

  bool Verify(const std::string& fileName, const Share& share) {
    Problems problems(report_, fileName);
    Error error;
    io::InputFile file;
    scan_ = Scan();
    const std::string path = name_.folder + fileName;
    FileEnd end;
    if (!file.Open(path.c_str(), error) || !end.Read(file, error)) {
      problems.Add(error);
      return false;
    }
    const Trailer& trailer = end.GetTrailer();
    const bool hasTrailer = HasTrailer(file, end, &problems);
    PayloadChecker checker(file, description_.channels.size(), &problems, share);
    if (!ScanRecords(file, hasTrailer ? trailer.dataEnd : file.Size(), &scan_, error, &checker)) {
      problems.Add(error);
      return false;
    }
    if (hasTrailer) CheckAgainstTrailer(trailer, &problems);
    CheckHeader(&problems);
    CheckChannels(&problems);
    if (hasTrailer) CheckIndices(file, path, trailer, &problems);
    return problems.None();
  }

  const Scan& Scanned() const { return scan_; }

 private:
  static bool HasTrailer(const io::InputFile& file, const FileEnd& end, Problems* problems) {
    if (end.HasTrailer() && end.GetTrailer().dataEnd <= file.Size()) return true;
    problems->Add("the file lacks its trailer; it is cut short or was never completed");
    return false;
  }

  void CheckAgainstTrailer(const Trailer& trailer, Problems* problems) {
    if (scan_.stop) problems->Add(scan_.stop);
    if (scan_.end != trailer.dataEnd || scan_.blockCount != trailer.blockCount) {
      problems->Add("%u whole time blocks end at %llu, the trailer says %u and %llu",
                    scan_.blockCount, static_cast<unsigned long long>(scan_.end),
                    trailer.blockCount, static_cast<unsigned long long>(trailer.dataEnd));
    }
  }

  void CheckHeader(Problems* problems) {
    const FileHeader& header = scan_.header;
    if (header.identity != description_.identity) {
      problems->Add("the file belongs to another cache than the description");
    }
    if (!AreSame(header, description_)) {
      problems->Add("layout, form or frame rate differ from the description's");
    }
  }

  void CheckChannels(Problems* problems) {
    if (!description_.isPerFrame && scan_.channels.size() < description_.channels.size()) {
      problems->Add("%zu channels in the file, %zu in the description", scan_.channels.size(),
                    description_.channels.size());
    }
    for (std::size_t i = 0; i < scan_.channels.size(); ++i) {
      const Channel& found = scan_.channels[i];
      if (i >= description_.channels.size()) {
        problems->Add("channel %zu is not in the description", i);
        continue;
      }
      const Channel& described = description_.channels[i];
      if (found.name != described.name || found.interpretation != described.interpretation ||
          found.type != described.type || found.interval != described.interval ||
          found.maximumError != described.maximumError) {
        problems->Add("channel %zu differs from the description's", i);
      }
    }
  }

  void CheckIndices(const io::InputFile& file, const std::string& path, const Trailer& trailer,
                    Problems* problems) {
    DataReader reader;
    Error error;
    if (!reader.Open(path, description_.identity, error)) {
      problems->Add(error);
      return;
    }
    if (reader.Directory().size() != scan_.indices.size()) {
      problems->Add("%zu channels in the directory, %zu in the records", reader.Directory().size(),
                    scan_.indices.size());
      return;
    }
    std::uint64_t position = trailer.dataEnd;
    for (std::uint32_t i = 0; i < scan_.indices.size(); ++i) {
      CheckIndex(reader, i, problems);
      const std::uint64_t size =
          std::uint64_t{reader.Directory()[i].samples.count} * kIndexEntrySize;
      if (reader.Directory()[i].indexOffset != position || !PaddingIsZero(file, position + size)) {
        problems->Add("the index of channel %u is out of place", i);
      }
      position += AlignUp(size);
    }
    if (reader.ReadsByRecords() || position != trailer.directory ||
        file.Size() - position !=
            std::uint64_t{trailer.channelCount} * kDirectoryEntrySize + kTrailerSize) {
      problems->Add("the indices do not fill the end of the file, or are damaged");
    }
  }

  void CheckIndex(DataReader& reader, std::uint32_t channel, Problems* problems) {
    Error error;
    std::span<const SampleEntry> index;
    if (!reader.Index(channel, &index, error)) {
      problems->Add(error);
      return;
    }
    const std::vector<SampleEntry>& found = scan_.indices[channel];
    const DirectoryEntry& entry = reader.Directory()[channel];
    const bool same = index.size() == found.size() &&
                      (found.empty() || std::memcmp(index.data(), found.data(),
                                                    found.size() * sizeof(SampleEntry)) == 0);
    if (!same || entry.samples.interval != Times(found).CommonInterval() ||
        entry.declared != scan_.channels[channel].interval) {
      problems->Add("the index of channel %u differs from the records", channel);
    }
  }

  // What lies between the end of an index and the alignment.
  bool PaddingIsZero(const io::InputFile& file, std::uint64_t offset) {
    std::vector<std::uint8_t> padding(static_cast<std::size_t>(AlignUp(offset) - offset));
    Error error;
    return file.ReadAt(offset, padding.data(), padding.size(), error) && IsZero(padding);
  }

  const CacheName& name_;
  const Description& description_;
  const io::Report& report_;
  Scan scan_;
};

// A frame's file holds that time, in the channels that the description says.
bool CheckFrame(const Description& description, std::int32_t tick, const Scan& scan,
                const std::string& fileName, const io::Report& report) {
  bool sound = true;
  for (std::uint32_t i = 0; i < description.channels.size(); ++i) {
    const bool expected = description.HasSample(i, tick);
    const std::size_t found = i < scan.indices.size() ? scan.indices[i].size() : 0;
    if (found == (expected ? 1 : 0) && (found == 0 || scan.indices[i].front().tick == tick)) {
      continue;
    }
    report.Say("%s: channel %u holds %zu samples, not the %d at tick %d", fileName.c_str(), i,
               found, expected ? 1 : 0, tick);
    sound = false;
  }
  return sound;
}

// Which times of the channels belong to a file. Counted file by file, for a description can claim
// any number of times in one line.
class TimesFound {
 public:
  explicit TimesFound(const Description& description)
      : description_(description), counts_(description.channels.size()) {}

  void CountFile(std::int32_t tick) {
    for (std::size_t i = 0; i < counts_.size(); ++i) {
      if (description_.HasSample(i, tick)) ++counts_[i];
    }
  }

  bool AreAll(const io::Report& report) const {
    bool sound = true;
    for (std::size_t i = 0; i < counts_.size(); ++i) {
      const Channel& channel = description_.channels[i];
      const std::uint32_t claimed = description_.TimesOf(channel).Count();
      if (counts_[i] == claimed) continue;
      report.Say("channel %s is to have %u samples, there are files for %u of them",
                 channel.name.c_str(), claimed, counts_[i]);
      sound = false;
    }
    return sound;
  }

 private:
  const Description& description_;
  std::vector<std::uint32_t> counts_;
};

}  // namespace

bool Verify(const CacheName& name, const io::Report& report) {
  Description description;
  Error error;
  if (!ReadDescription(name.DescriptionPath(), &description, error)) {
    report.Say("%s.xml: %s", name.base.c_str(), error.text());
    return false;
  }
  FileVerifier verifier(name, description, report);
  const DataFiles files(name.base, description);
  TimesFound found(description);
  bool sound = true;
  std::uint32_t broken = 0;
  std::string fileName;
  for (std::uint32_t i = 0; i < files.Count(); ++i) {
    if (broken == kMostBrokenFiles) {
      report.Say("%s: %u files are broken, the rest is not looked at", name.base.c_str(), broken);
      return false;
    }
    files.Name(i, &fileName);
    const Share share(report, i, files.Count());
    if (!share.Proceed(0, 0)) {
      report.Say("%s: ended before all was read", name.base.c_str());
      return false;
    }
    bool whole = verifier.Verify(fileName, share);
    if (description.isPerFrame) {
      const std::int32_t tick = description.times.At(i);
      whole = whole && CheckFrame(description, tick, verifier.Scanned(), fileName, report);
      found.CountFile(tick);
    }
    broken += whole ? 0 : 1;
    sound = whole && sound;
  }
  return (!description.isPerFrame || found.AreAll(report)) && sound;
}

}  // namespace kelsdk::nc
