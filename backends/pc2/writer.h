#pragma once

#include <string>

#include "backends/io/output_file.h"
#include "backends/io/replace.h"
#include "backends/pc2/header.h"

namespace kelsdk::pc2 {

/// The temporary name beside a target: "shot.pc2.partial", then "shot.pc2.partial2" and so on while
/// names are taken, so that writers do not meet and a dead writer's samples are not overwritten.
std::string PartialName(const std::string& target, unsigned int attempt);
inline constexpr char kPartialSuffix[] = ".partial";

/// Writes one file under a temporary name and puts it in its target's place at the end. May throw
/// std::bad_alloc.
///
/// While samples arrive in order, the partial file's size tells how many of them are there. Once a
/// sample is written past a gap it does not, so the partial header's sample count then says how
/// many lie before the first gap; End writes the declared one back.
class Writer {
 public:
  Writer() = default;
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  /// Leaves the partial file for recovery, unless no sample reached it.
  ~Writer();

  /// Looks at the target; makes nothing.
  bool Prepare(const char* path, io::Error& error);

  /// Makes the partial file with its header.
  bool Begin(const Header& header, io::Error& error);

  const Header& header() const { return header_; }

  /// Writes `count` samples from `first` on with one system call.
  bool Write(std::uint32_t first, std::uint32_t count, const float* points, io::Error& error);

  /// Sets the declared size, makes the file durable and renames it into place. Refused after a
  /// write that failed: a file with a hole must not replace a whole one.
  bool End(io::Error& error);

  /// Removes the partial file, unless End has published it.
  void Discard();

 private:
  bool WriteHeader(const Header& header, io::Error& error);
  void RemovePartial();
  bool NoteOrder(std::uint32_t sample, io::Error& error);

  io::ReplaceTarget target_;
  std::string partialPath_;
  io::OutputFile file_;
  Header header_;
  std::uint32_t inOrder_ = 0;  // samples 0 to inOrder_ - 1 are written
  bool anyWritten_ = false;
  bool published_ = false;
  bool hasGap_ = false;
  bool writeFailed_ = false;
};

}  // namespace kelsdk::pc2
