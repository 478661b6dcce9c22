#include <new>

#include "backends/io/guard.h"
#include "backends/pc2/clean.h"
#include "backends/pc2/follow.h"
#include "backends/pc2/reader.h"
#include "backends/pc2/recover.h"
#include "backends/pc2/verify.h"
#include "backends/pc2/writer.h"
#include "backends/zuPointCache2IO.h"

namespace kelsdk {

struct zuPointCache2IO::Impl {
  pc2::Reader reader;
  pc2::Writer writer;
  io::Error error;
};

namespace {

void Show(const pc2::Header& header, zuPointCache2IO* shown) {
  shown->version = header.version;
  shown->pointCount = header.pointCount;
  shown->startFrame = header.startFrame;
  shown->sampleRate = header.sampleRate;
  shown->sampleCount = header.sampleCount;
}

}  // namespace

zuPointCache2IO::zuPointCache2IO() : impl(new (std::nothrow) Impl) {}

zuPointCache2IO::~zuPointCache2IO() {
  delete impl;
}

bool zuPointCache2IO::initialize(const char* fileName, openMode mode) {
  if (impl == nullptr) return false;
  if (fileName == nullptr) return impl->error.Set(io::Error::eRefused, "no file name given");
  if (mode == writeMode) {
    return io::Guarded(impl->error, false,
                       [&] { return impl->writer.Prepare(fileName, impl->error); });
  }
  if (!impl->reader.Open(fileName, impl->error)) return false;
  Show(impl->reader.header(), this);
  return true;
}

bool zuPointCache2IO::beginWriteData(int points, int samples, float start, float rate) {
  if (impl == nullptr) return false;
  const pc2::Header header{pc2::kVersion, static_cast<std::uint32_t>(points), start, rate,
                           static_cast<std::uint32_t>(samples)};
  const bool begun =
      io::Guarded(impl->error, false, [&] { return impl->writer.Begin(header, impl->error); });
  if (begun) Show(header, this);
  return begun;
}

bool zuPointCache2IO::readSample(unsigned int sampleIndex, float* buffer, unsigned int& points) {
  return impl != nullptr && impl->reader.Read(sampleIndex, buffer, &points, impl->error);
}

bool zuPointCache2IO::writeSample(int sampleIndex, float* buffer) {
  // A negative number becomes one above any count.
  return writeSamples(static_cast<std::uint32_t>(sampleIndex), 1, buffer);
}

bool zuPointCache2IO::readSamples(unsigned int firstSample, unsigned int samples, float* buffer) {
  return impl != nullptr && impl->reader.ReadRun(firstSample, samples, buffer, impl->error);
}

bool zuPointCache2IO::writeSamples(unsigned int firstSample, unsigned int samples,
                                   const float* buffer) {
  return impl != nullptr && impl->writer.Write(firstSample, samples, buffer, impl->error);
}

bool zuPointCache2IO::endWriteData() {
  return impl != nullptr &&
         io::Guarded(impl->error, false, [&] { return impl->writer.End(impl->error); });
}

void zuPointCache2IO::discardWrite() {
  if (impl != nullptr) impl->writer.Discard();
}

const char* zuPointCache2IO::errorString() const {
  return impl != nullptr ? impl->error.text() : "not enough memory";
}

unsigned int zuPointCache2IO::wholeSampleCount() const {
  return impl != nullptr ? impl->reader.WholeSamples() : 0;
}

std::uint64_t zuPointCache2IO::promisedSize() const {
  if (impl == nullptr || version != pc2::kVersion) return 0;
  return impl->reader.header().FileSize();
}

bool zuPointCache2IO::verify(const char* fileName, reportFunction report, void* context,
                             proceedFunction proceed) {
  const io::Report lines{report, context, proceed};
  io::Error error;
  const bool sound = io::Guarded(
      error, false, [&] { return pc2::Verify(fileName != nullptr ? fileName : "", lines); });
  if (error) lines.Say("%s", error.text());
  return sound;
}

bool zuPointCache2IO::recover(const char* fileName, unsigned int& savedCount, reportFunction report,
                              void* context) {
  return recover(fileName, {}, savedCount, report, context);
}

bool zuPointCache2IO::recover(const char* fileName, const recoverOptions& options,
                              unsigned int& savedCount, reportFunction report, void* context) {
  const io::Report lines{report, context};
  io::Error error;
  const bool recovered = io::Guarded(error, false, [&] {
    return pc2::Recover(fileName != nullptr ? fileName : "", options.force, &savedCount, lines,
                        error);
  });
  if (!recovered) lines.Say("%s", error.text());
  return recovered;
}

unsigned int zuPointCache2IO::leftovers(const char* fileName, reportFunction report,
                                        void* context) {
  io::Error error;
  return io::Guarded(error, 0U, [&] {
    return fileName != nullptr ? pc2::CountLeftovers(fileName, {report, context}) : 0U;
  });
}

bool zuPointCache2IO::follow(const char* fileName, CacheProgressFunction told,
                             reportFunction report, void* context) {
  const io::Report lines{report, context};
  io::Error error;
  const bool followed = io::Guarded(
      error, false, [&] { return pc2::Follow(fileName != nullptr ? fileName : "", told, lines); });
  if (error) lines.Say("%s", error.text());
  return followed;
}

bool zuPointCache2IO::listLeftovers(const char* folder, CacheLeftoverFunction told,
                                    reportFunction report, void* context) {
  return io::ListLeftovers(pc2::FindLeftovers, folder, told, {report, context});
}

bool zuPointCache2IO::removeLeftover(const char* folder, const char* name, bool force,
                                     reportFunction report, void* context) {
  return io::RemoveLeftover(pc2::RemoveLeftover, folder, name, force, {report, context});
}

}  // namespace kelsdk
