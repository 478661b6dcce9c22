#include "backends/pc2/verify.h"

#include <cmath>
#include <vector>

#include "backends/pc2/reader.h"

namespace kelsdk::pc2 {
namespace {

using Ull = unsigned long long;  // for messages

bool CheckHeader(const Reader& reader, const io::Report& report) {
  const Header& header = reader.header();
  bool sound = true;
  if (!std::isfinite(header.startFrame)) {
    report.Say("the start frame is no number");
    sound = false;
  }
  if (!std::isfinite(header.sampleRate) || header.sampleRate == 0) {
    report.Say("the sample rate gives the samples no frames");
    sound = false;
  }
  if (reader.WholeSamples() != header.sampleCount) {
    report.Say("holds %u whole samples of %u claimed", reader.WholeSamples(), header.sampleCount);
    sound = false;
  }
  if (reader.FileSize() > header.FileSize()) {
    report.Say("%llu bytes after the last sample",
               static_cast<Ull>(reader.FileSize() - header.FileSize()));
    sound = false;
  }
  return sound;
}

bool ReadSamples(Reader* reader, const io::Report& report) {
  const std::uint32_t pointCount = reader->header().pointCount;
  // Samples without points hold nothing to read, however many there are.
  const std::uint32_t whole = pointCount != 0 ? reader->WholeSamples() : 0;
  std::vector<float> points(whole != 0 ? std::size_t{3} * pointCount : 0);
  bool sound = true;
  for (std::uint32_t sample = 0; sample < whole; ++sample) {
    if (!report.Proceed(sample, whole)) {
      report.Say("ended before sample %u was read", sample);
      return false;
    }
    std::uint32_t count = pointCount;
    io::Error error;
    if (reader->Read(sample, points.data(), &count, error)) continue;
    report.Say("sample %u: %s", sample, error.text());
    sound = false;
  }
  return sound;
}

}  // namespace

bool Verify(const char* path, const io::Report& report) {
  Reader reader;
  io::Error error;
  if (!reader.Open(path, error)) {
    report.Say("%s", error.text());
    return false;
  }
  if (reader.header().version != kVersion) {
    report.Say("version %d, only %d is known", reader.header().version, kVersion);
    return false;
  }
  const bool headerIsSound = CheckHeader(reader, report);
  return ReadSamples(&reader, report) && headerIsSound;
}

}  // namespace kelsdk::pc2
