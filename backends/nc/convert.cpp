#include "backends/nc/convert.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "backends/io/guard.h"
#include "backends/nc/reader.h"
#include "backends/nc/writer.h"
#include "backends/zuPointCache2IO.h"

namespace kelsdk::nc {
namespace {

using io::Error;

constexpr std::size_t kCoordinates = 3;
constexpr std::uint32_t kPc2PointSize = 12;

// Small samples are read and written many at a time.
constexpr std::size_t kBatchBytes = std::size_t{256} * 1024;

std::uint32_t BatchOf(std::uint32_t pointCount, std::uint32_t sampleCount) {
  const std::size_t sampleBytes = std::size_t{kPc2PointSize} * std::max(pointCount, 1u);
  const std::size_t batch = std::max<std::size_t>(kBatchBytes / sampleBytes, 1);
  return static_cast<std::uint32_t>(std::min<std::size_t>(batch, sampleCount));
}

// Rounds to a tick; false outside their range.
bool ToTick(double ticks, std::int32_t* tick) {
  const double rounded = std::round(ticks);
  if (!(rounded >= std::numeric_limits<std::int32_t>::min() &&
        rounded <= std::numeric_limits<std::int32_t>::max())) {
    return false;
  }
  *tick = static_cast<std::int32_t>(rounded);
  return true;
}

// When the samples of a PC2 file are, in ticks.
class Pc2Times {
 public:
  Pc2Times(const zuPointCache2IO& file, int ticksPerFrame)
      : start_(file.startFrame), rate_(file.sampleRate), ticksPerFrame_(ticksPerFrame) {}

  bool At(std::uint32_t sample, std::int32_t* tick) const {
    return ToTick((start_ + sample * rate_) * ticksPerFrame_, tick);
  }

  bool Check(std::uint32_t sampleCount, Error& error) const {
    std::int32_t tick = 0;
    if (sampleCount != 0 && (!At(0, &tick) || !At(sampleCount - 1, &tick))) {
      return error.Set(Error::eRefused,
                       "%u samples from frame %g on, %g frames apart, leave the "
                       "range of ticks",
                       sampleCount, start_, rate_);
    }
    if (sampleCount > 1 && !(std::fabs(rate_ * ticksPerFrame_) >= 1)) {
      return error.Set(Error::eRefused, "samples %g frames apart are less than a tick apart",
                       rate_);
    }
    return true;
  }

  /// 0 when it is no interval.
  std::uint32_t Interval() const {
    std::int32_t interval = 0;
    return ToTick(rate_ * ticksPerFrame_, &interval) && interval > 0
               ? static_cast<std::uint32_t>(interval)
               : 0;
  }

 private:
  double start_;
  double rate_;
  int ticksPerFrame_;
};

bool CopySamples(zuPointCache2IO& from, const Pc2Times& times, CacheWriter& to,
                 std::uint32_t channel, const Proceed& proceed, Error& error) {
  const std::uint32_t sampleCount = from.sampleCount;
  const std::uint32_t batch = BatchOf(from.pointCount, sampleCount);
  const std::size_t valueCount = kCoordinates * from.pointCount;
  std::vector<float> points(valueCount * batch);
  for (std::uint32_t i = 0; i < sampleCount; ++i) {
    const std::uint32_t inBatch = i % batch;
    if (inBatch == 0 && !from.readSamples(i, std::min(batch, sampleCount - i), points.data())) {
      return error.Set(Error::eDamaged, "sample %u of %u: %.128s", i, sampleCount,
                       from.errorString());
    }
    std::int32_t tick = 0;
    if (!times.At(i, &tick) || !to.BeginBlock(tick, error) ||
        !to.AddArray(channel, tick, points.data() + inBatch * valueCount, from.pointCount, error) ||
        !to.EndBlock(error) || !proceed(i + 1, sampleCount, error)) {
      return false;
    }
  }
  return true;
}

// The samples that a PC2 file of a channel has.
struct Pc2Plan {
  std::uint32_t sampleCount = 0;
  std::uint32_t pointCount = 0;
  std::int32_t first = 0;      // tick of sample 0
  std::uint32_t interval = 0;  // ticks from one sample to the next
};

bool EqualCounts(Session& session, std::uint32_t channel, std::uint32_t sampleCount,
                 std::uint32_t* count, Error& error) {
  for (std::uint32_t i = 0; i < sampleCount; ++i) {
    SampleEntry entry;
    if (!session.Locate(channel, i, &entry, error)) return false;
    if (i > 0 && entry.count != *count) {
      return error.Set(Error::eUnsupported, "%u elements at tick %d, %u before it", entry.count,
                       entry.tick, *count);
    }
    *count = entry.count;
  }
  return true;
}

bool MakePlan(Session& session, std::uint32_t channel, int ticksPerFrame, Pc2Plan* plan,
              Error& error) {
  if (ticksPerFrame <= 0) return error.Set(Error::eRefused, "%d ticks per frame", ticksPerFrame);
  const std::vector<Channel>& channels = session.Info().channels;
  if (channel >= channels.size()) {
    return error.Set(Error::eRefused, "channel %u of %zu", channel, channels.size());
  }
  if (kElementTypes[channels[channel].type].elementWidth != kCoordinates) {
    return error.Set(Error::eUnsupported, "a channel of %s holds no points",
                     kElementTypes[channels[channel].type].name);
  }
  Times times{std::span<const SampleEntry>()};
  if (!session.TimesOf(channel, &times, error)) return false;
  const Extent extent = session.ExtentOf(channel);
  if (extent.count == 0) return error.Set(Error::eUnsupported, "the channel has no samples");
  const bool isRegular = IsRegular(extent);
  const std::int64_t length = std::int64_t{extent.last} - extent.first;
  const std::int64_t samples = isRegular ? extent.count : length / ticksPerFrame + 1;
  if (samples > std::numeric_limits<std::int32_t>::max()) {
    return error.Set(Error::eUnsupported, "%lld samples are beyond a PC2 file",
                     static_cast<long long>(samples));
  }
  plan->first = extent.first;
  plan->sampleCount = static_cast<std::uint32_t>(samples);
  plan->interval =
      isRegular ? SamplingInterval(session, channel) : static_cast<std::uint32_t>(ticksPerFrame);
  if (!EqualCounts(session, channel, extent.count, &plan->pointCount, error)) return false;
  if (plan->pointCount <= std::numeric_limits<std::int32_t>::max() / kPc2PointSize) return true;
  return error.Set(Error::eUnsupported, "%u points are beyond a PC2 file", plan->pointCount);
}

// Reads samples as floats, whatever their type.
class PointReader {
 public:
  PointReader(Session& session, std::uint32_t channel, std::uint32_t pointCount)
      : session_(session),
        channel_(channel),
        pointCount_(pointCount),
        wide_(session.Info().channels[channel].type == zuCacheData::eNCDoubleVectorArray
                  ? kCoordinates * pointCount
                  : 0) {}

  bool Read(std::int32_t tick, float* points, Error& error) {
    SampleEntry entry;
    void* const array = wide_.empty() ? static_cast<void*>(points) : wide_.data();
    if (!FindSampleAt(session_, channel_, tick, &entry, error)) return false;
    if (entry.count != pointCount_) {
      return error.Set(Error::eDamaged, "%u points at tick %d, not %u", entry.count, tick,
                       pointCount_);
    }
    if (!session_.Fetch(channel_, entry, tick, array, error)) return false;
    for (std::size_t i = 0; i < wide_.size(); ++i) points[i] = static_cast<float>(wide_[i]);
    return true;
  }

 private:
  Session& session_;
  std::uint32_t channel_;
  std::uint32_t pointCount_;
  std::vector<double> wide_;
};

bool WritePc2(Session& session, std::uint32_t channel, const Pc2Plan& plan, zuPointCache2IO& to,
              const Proceed& proceed, Error& error) {
  PointReader reader(session, channel, plan.pointCount);
  const std::uint32_t batch = BatchOf(plan.pointCount, plan.sampleCount);
  const std::size_t valueCount = kCoordinates * plan.pointCount;
  std::vector<float> points(valueCount * batch);
  for (std::uint32_t i = 0; i < plan.sampleCount; ++i) {
    const std::uint32_t inBatch = i % batch;
    const auto tick = static_cast<std::int32_t>(plan.first + std::int64_t{plan.interval} * i);
    if (!reader.Read(tick, points.data() + inBatch * valueCount, error)) return false;
    const bool batchEnds = inBatch + 1 == batch || i + 1 == plan.sampleCount;
    if (batchEnds && !to.writeSamples(i - inBatch, inBatch + 1, points.data())) {
      return error.Set(Error::eDevice, "sample %u: %.128s", i, to.errorString());
    }
    if (!proceed(i + 1, plan.sampleCount, error)) return false;
  }
  if (to.endWriteData()) return true;
  return error.Set(Error::eDevice, "%.200s", to.errorString());
}

}  // namespace

bool ConvertFromPc2(const char* pc2FileName, const CacheName& name, bool isPerFrame,
                    const char* tag, int ticksPerFrame, const Proceed& proceed, Error& error) {
  zuPointCache2IO file;
  if (pc2FileName == nullptr || !file.initialize(pc2FileName, zuPointCache2IO::readMode)) {
    return error.Set(Error::eRefused, "%.200s", file.errorString());
  }
  if (file.version != 1) {
    return error.Set(Error::eUnsupported, "PC2 version %d, only 1 is served", file.version);
  }
  if (ticksPerFrame <= 0) return error.Set(Error::eRefused, "%d ticks per frame", ticksPerFrame);
  const Pc2Times times(file, ticksPerFrame);
  if (!times.Check(file.sampleCount, error)) return false;
  if (file.wholeSampleCount() != file.sampleCount) {
    return error.Set(Error::eCutShort, "%u samples claimed, %u in the file", file.sampleCount,
                     file.wholeSampleCount());
  }
  CacheWriter writer;
  writer.LetBlocksWait();
  std::uint32_t channel = 0;
  const bool converted = io::Guarded(error, false, [&] {
    return writer.Begin(name, isPerFrame, tag, ticksPerFrame, error) &&
           writer.AddChannel(name.base.c_str(), "Points", zuCacheData::eNCFloatVectorArray,
                             times.Interval(), &channel, error) &&
           CopySamples(file, times, writer, channel, proceed, error) && writer.Finish(error);
  });
  if (!converted) writer.Discard();  // the source has it all
  return converted;
}

bool ConvertToPc2(const char* pc2FileName, const CacheName& name, std::uint32_t channel,
                  int ticksPerFrame, const Proceed& proceed, Error& error) {
  CacheReader reader;
  Pc2Plan plan;
  if (!reader.Open(name, error) || !MakePlan(reader, channel, ticksPerFrame, &plan, error)) {
    return false;
  }
  zuPointCache2IO file;
  const double frames = ticksPerFrame;
  if (pc2FileName == nullptr || !file.initialize(pc2FileName, zuPointCache2IO::writeMode) ||
      !file.beginWriteData(static_cast<int>(plan.pointCount), static_cast<int>(plan.sampleCount),
                           static_cast<float>(plan.first / frames),
                           static_cast<float>(plan.interval / frames))) {
    return error.Set(Error::eRefused, "%.200s", file.errorString());
  }
  const bool converted = io::Guarded(
      error, false, [&] { return WritePc2(reader, channel, plan, file, proceed, error); });
  if (!converted) file.discardWrite();
  return converted;
}

}  // namespace kelsdk::nc
