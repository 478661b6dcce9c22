#include "backends/pc2/writer.h"

#include <algorithm>
#include <climits>

#include "backends/io/beside.h"

namespace kelsdk::pc2 {

std::string PartialName(const std::string& target, unsigned int attempt) {
  return io::NumberedName(target + kPartialSuffix, attempt);
}

Writer::~Writer() {
  if (!anyWritten_) Discard();
}

void Writer::Discard() {
  if (file_.IsOpen() && !published_) RemovePartial();
}

bool Writer::Prepare(const char* path, io::Error& error) {
  return io::FindReplaceTarget(path, &target_, error);
}

bool Writer::Begin(const Header& header, io::Error& error) {
  if (target_.path.empty()) return error.Set(io::Error::eRefused, "no target was prepared");
  if (file_.IsOpen()) return error.Set(io::Error::eRefused, "writing has begun already");
  if (!CheckCounts(header, error)) return false;
  if (header.sampleCount > INT_MAX) {
    return error.Set(io::Error::eRefused, "%u samples to write, %d is the most", header.sampleCount,
                     INT_MAX);
  }
  for (unsigned int attempt = 1; attempt <= io::kMostNames && !file_.IsOpen(); ++attempt) {
    partialPath_ = PartialName(target_.path, attempt);
    if (!file_.Create(partialPath_.c_str(), target_.mode, error) &&
        error.kind() != io::Error::eExists) {
      return false;
    }
  }
  if (!file_.IsOpen()) return false;
  header_ = header;
  // The process's mask applies to a new file; one that replaces another keeps its permissions.
  const bool begun =
      (!target_.exists || file_.SetMode(target_.mode, error)) && WriteHeader(header_, error);
  if (!begun) RemovePartial();
  return begun;
}

void Writer::RemovePartial() {
  io::Error ignored;
  io::Remove(partialPath_.c_str(), ignored);
  file_.Close(ignored);
}

bool Writer::WriteHeader(const Header& header, io::Error& error) {
  unsigned char bytes[kHeaderSize];
  EncodeHeader(header, bytes);
  return file_.WriteAt(0, bytes, sizeof bytes, error);
}

bool Writer::Write(std::uint32_t first, std::uint32_t count, const float* points,
                   io::Error& error) {
  if (!file_.IsOpen()) return error.Set(io::Error::eRefused, "no file is open for writing");
  if (first >= header_.sampleCount || count > header_.sampleCount - first) {
    return error.Set(io::Error::eRefused, "sample %u written, the file is to have %u",
                     std::max(first, header_.sampleCount), header_.sampleCount);
  }
  if (NoteOrder(first, error) &&
      file_.WriteAt(header_.OffsetOf(first), points, header_.SampleBytes() * count, error)) {
    anyWritten_ = true;
    if (first <= inOrder_) inOrder_ = std::max(inOrder_, first + count);
    return true;
  }
  writeFailed_ = true;
  return false;
}

bool Writer::NoteOrder(std::uint32_t sample, io::Error& error) {
  if (hasGap_ || sample <= inOrder_) return true;
  Header partial = header_;
  partial.sampleCount = inOrder_;
  if (!WriteHeader(partial, error)) return false;
  hasGap_ = true;
  return true;
}

bool Writer::End(io::Error& error) {
  if (!file_.IsOpen()) return error.Set(io::Error::eRefused, "no file is open for writing");
  if (writeFailed_) {
    return error.Set(io::Error::eRefused, "a sample could not be written earlier");
  }
  if (hasGap_ && !WriteHeader(header_, error)) return false;
  const char* target = target_.path.c_str();
  if (!file_.Truncate(header_.FileSize(), error) || !file_.Sync(error) ||
      !io::Rename(partialPath_.c_str(), target, error)) {
    return false;
  }
  published_ = true;
  return io::SyncFolderOf(target, error) && file_.Close(error);
}

}  // namespace kelsdk::pc2
