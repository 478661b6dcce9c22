#include "backends/nc/convert.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "backends/io/guard.h"
#include "backends/nc/even_spacing.h"
#include "backends/nc/publish.h"
#include "backends/nc/reader.h"
#include "backends/nc/writer.h"
#include "backends/zuPointCache2IO.h"
#include "host/KelNearestFloat.h"

namespace kelsdk::nc {
namespace {

using io::Error;

constexpr std::size_t kCoordinates = 3;
constexpr std::uint32_t kPc2PointSize = 12;

// A file of 32 bytes may claim any number of samples without points; they must not unfold into
// gigabytes.
constexpr std::uint32_t kMostEmptySamples = 100000;

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

// The samples [first, first + count) of those that there are.
struct SampleRange {
  std::uint32_t first = 0;
  std::uint32_t count = 0;
};

bool TakeRange(const ConvertOptions& options, std::uint32_t samples, SampleRange* range,
               Error& error) {
  if (options.firstSample > samples) {
    return error.Set(Error::eRefused, "samples from %u on of %u", options.firstSample, samples);
  }
  *range = {options.firstSample, std::min(options.sampleCount, samples - options.firstSample)};
  return true;
}

bool CheckRate(const ConvertOptions& options, Error& error) {
  if (options.ticksPerFrame <= 0) {
    return error.Set(Error::eRefused, "%d ticks per frame", options.ticksPerFrame);
  }
  return CheckExactRate(options.exactRate, options.ticksPerFrame, error);
}

// When the samples of a PC2 file are, in ticks.
class Pc2Times {
 public:
  Pc2Times(const zuPointCache2IO& file, double ticksPerFrame)
      : start_(file.startFrame), rate_(file.sampleRate), ticksPerFrame_(ticksPerFrame) {}

  bool At(std::uint32_t sample, std::int32_t* tick) const {
    return ToTick((start_ + sample * rate_) * ticksPerFrame_, tick);
  }

  bool Check(const SampleRange& range, Error& error) const {
    std::int32_t tick = 0;
    if (range.count != 0 &&
        (!At(range.first, &tick) || !At(range.first + range.count - 1, &tick))) {
      return error.Set(Error::eRefused,
                       "%u samples from frame %g on, %g frames apart, leave the "
                       "range of ticks",
                       range.first + range.count, start_, rate_);
    }
    if (range.count > 1 && !(std::fabs(rate_ * ticksPerFrame_) >= 1)) {
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
  double ticksPerFrame_;
};

bool CopySamples(zuPointCache2IO& from, const SampleRange& range, const Pc2Times& times,
                 CacheWriter& to, std::uint32_t channel, const Proceed& proceed, Error& error) {
  const std::uint32_t batch = BatchOf(from.pointCount, range.count);
  const std::size_t valueCount = kCoordinates * from.pointCount;
  std::vector<float> points(valueCount * batch);
  for (std::uint32_t i = 0; i < range.count; ++i) {
    const std::uint32_t inBatch = i % batch;
    const std::uint32_t sample = range.first + i;
    if (inBatch == 0 &&
        !from.readSamples(sample, std::min(batch, range.count - i), points.data())) {
      return error.Set(Error::eDamaged, "sample %u of %u: %.128s", sample, from.sampleCount,
                       from.errorString());
    }
    std::int32_t tick = 0;
    if (!times.At(sample, &tick) || !to.BeginBlock(tick, error) ||
        !to.AddArray(channel, tick, points.data() + inBatch * valueCount, from.pointCount, error) ||
        !to.EndBlock(error) || !proceed(i + 1, range.count, error)) {
      return false;
    }
  }
  return true;
}

// The samples that a PC2 file of a channel has.
struct Pc2Plan {
  SampleRange range;  // of an evenly spaced channel its samples, else frames
  bool isEven = false;
  std::uint32_t pointCount = 0;
  std::int32_t first = 0;  // tick of the channel's first sample
  double ticksPerFrame = 0;
  double start = 0;     // frame of the first sample of the range
  double interval = 1;  // frames

  // The tick that frame `i` of a channel that is not even asks for.
  std::int32_t TickOf(std::uint32_t i) const {
    return static_cast<std::int32_t>(std::floor(first + i * ticksPerFrame + 0.5));
  }
};

bool EqualCounts(OpenCache& cache, std::uint32_t channel, std::uint32_t sampleCount,
                 std::uint32_t* count, Error& error) {
  for (std::uint32_t i = 0; i < sampleCount; ++i) {
    SampleEntry entry;
    if (!cache.Locate(channel, i, &entry, error)) return false;
    if (i > 0 && entry.count != *count) {
      return error.Set(Error::eUnsupported, "%u elements at tick %d, %u before it", entry.count,
                       entry.tick, *count);
    }
    *count = entry.count;
  }
  return true;
}

bool CheckChannel(const Description& description, std::uint32_t channel, Error& error) {
  if (channel >= description.channels.size()) {
    return error.Set(Error::eRefused, "channel %u of %zu", channel, description.channels.size());
  }
  const ElementTypeTraits& type = kElementTypes[description.channels[channel].type];
  if (type.elementWidth == kCoordinates) return true;
  return error.Set(Error::eUnsupported, "a channel of %s holds no points", type.name);
}

bool MakePlan(OpenCache& cache, std::uint32_t channel, const ConvertOptions& options, Pc2Plan* plan,
              Error& error) {
  if (!CheckRate(options, error) || !CheckChannel(cache.Info(), channel, error)) return false;
  Times times;
  if (!cache.TimesOf(channel, &times, error)) return false;
  const std::uint32_t count = times.Count();
  if (count == 0) return error.Set(Error::eUnsupported, "the channel has no samples");
  plan->ticksPerFrame = ExactTicks(options.ticksPerFrame, options.exactRate);
  plan->first = times.At(0);
  const auto even = FindEvenSpacing(times, plan->ticksPerFrame, SamplingInterval(cache, channel));
  plan->isEven = even.has_value();
  const double length = double(times.At(count - 1)) - plan->first;
  const double samples = even ? count : std::floor(length / plan->ticksPerFrame) + 1;
  if (samples > std::numeric_limits<std::int32_t>::max()) {
    return error.Set(Error::eUnsupported, "%.0f samples are beyond a PC2 file", samples);
  }
  if (!TakeRange(options, static_cast<std::uint32_t>(samples), &plan->range, error)) return false;
  if (even) plan->interval = even->interval;
  plan->start =
      (even ? even->start : plan->first / plan->ticksPerFrame) + plan->range.first * plan->interval;
  if (!EqualCounts(cache, channel, count, &plan->pointCount, error)) return false;
  if (plan->pointCount <= std::numeric_limits<std::int32_t>::max() / kPc2PointSize) return true;
  return error.Set(Error::eUnsupported, "%u points are beyond a PC2 file", plan->pointCount);
}

// Reads samples as floats, whatever their type.
class PointReader {
 public:
  PointReader(OpenCache& cache, std::uint32_t channel, std::uint32_t pointCount)
      : cache_(cache),
        channel_(channel),
        pointCount_(pointCount),
        wide_(cache.Info().channels[channel].type == zuCacheData::eNCDoubleVectorArray
                  ? kCoordinates * pointCount
                  : 0) {}

  /// A sample by its place in the plan.
  bool Read(const Pc2Plan& plan, std::uint32_t place, float* points, Error& error) {
    SampleEntry entry;
    const std::int32_t tick = plan.TickOf(place);
    const bool found = plan.isEven ? cache_.Locate(channel_, place, &entry, error)
                                   : FindSampleAt(cache_, channel_, tick, &entry, error);
    if (!found) return false;
    void* const array = wide_.empty() ? static_cast<void*>(points) : wide_.data();
    if (entry.count != pointCount_) {
      return error.Set(Error::eDamaged, "%u points at tick %d, not %u", entry.count, entry.tick,
                       pointCount_);
    }
    if (!cache_.Fetch(channel_, entry, entry.tick, array, error)) return false;
    for (std::size_t i = 0; i < wide_.size(); ++i) points[i] = KelNearestFloat(wide_[i]);
    return true;
  }

 private:
  OpenCache& cache_;
  std::uint32_t channel_;
  std::uint32_t pointCount_;
  std::vector<double> wide_;
};

bool WritePc2(OpenCache& cache, std::uint32_t channel, const Pc2Plan& plan, zuPointCache2IO& to,
              const Proceed& proceed, Error& error) {
  PointReader reader(cache, channel, plan.pointCount);
  const std::uint32_t sampleCount = plan.range.count;
  const std::uint32_t batch = BatchOf(plan.pointCount, sampleCount);
  const std::size_t valueCount = kCoordinates * plan.pointCount;
  std::vector<float> points(valueCount * batch);
  for (std::uint32_t i = 0; i < sampleCount; ++i) {
    const std::uint32_t inBatch = i % batch;
    float* const place = points.data() + inBatch * valueCount;
    if (!reader.Read(plan, plan.range.first + i, place, error)) return false;
    const bool batchEnds = inBatch + 1 == batch || i + 1 == sampleCount;
    if (batchEnds && !to.writeSamples(i - inBatch, inBatch + 1, points.data())) {
      return error.Set(Error::eDevice, "sample %u: %.128s", i, to.errorString());
    }
    if (!proceed(i + 1, sampleCount, error)) return false;
  }
  if (to.endWriteData()) return true;
  return error.Set(Error::eDevice, "%.200s", to.errorString());
}

}  // namespace

bool ConvertFromPc2(const char* pc2FileName, const CacheName& name, bool isPerFrame,
                    const char* tag, const ConvertOptions& options, const Proceed& proceed,
                    Error& error) {
  zuPointCache2IO file;
  if (pc2FileName == nullptr || !file.initialize(pc2FileName, zuPointCache2IO::readMode)) {
    return error.Set(Error::eRefused, "%.200s", file.errorString());
  }
  if (file.version != 1) {
    return error.Set(Error::eUnsupported, "PC2 version %d, only 1 is served", file.version);
  }
  SampleRange range;
  const Pc2Times times(file, ExactTicks(options.ticksPerFrame, options.exactRate));
  if (!CheckRate(options, error) || !TakeRange(options, file.sampleCount, &range, error) ||
      !times.Check(range, error)) {
    return false;
  }
  if (file.wholeSampleCount() < range.first + range.count) {
    return error.Set(Error::eCutShort, "%u samples claimed, %u in the file", file.sampleCount,
                     file.wholeSampleCount());
  }
  if (file.pointCount == 0 && range.count > kMostEmptySamples) {
    return error.Set(Error::eUnsupported, "%u samples of no points", range.count);
  }
  CacheWriter writer;
  writer.LetBlocksWait();
  FileLayout layout;
  std::uint32_t channel = 0;
  const bool converted = io::Guarded(error, false, [&] {
    return MakeLayout(isPerFrame, tag, options.ticksPerFrame, options.exactRate,
                      options.compactEncoding, &layout, error) &&
           writer.Begin(name, layout, error) &&
           writer.AddChannel(name.base.c_str(), "Points", zuCacheData::eNCFloatVectorArray,
                             times.Interval(), &channel, error) &&
           (options.maximumError == 0 ||
            writer.SetMaximumError(channel, options.maximumError, error)) &&
           CopySamples(file, range, times, writer, channel, proceed, error) &&
           FinishAndPublish(&writer, error);
  });
  if (!converted) writer.Discard();  // the source has it all
  return converted;
}

bool ConvertToPc2(const char* pc2FileName, const CacheName& name, std::uint32_t channel,
                  const ConvertOptions& options, const Proceed& proceed, Error& error) {
  CacheReader reader;
  Pc2Plan plan;
  if (!reader.Open(name, error) || !MakePlan(reader, channel, options, &plan, error)) {
    return false;
  }
  zuPointCache2IO file;
  if (pc2FileName == nullptr || !file.initialize(pc2FileName, zuPointCache2IO::writeMode) ||
      !file.beginWriteData(static_cast<int>(plan.pointCount), static_cast<int>(plan.range.count),
                           KelNearestFloat(plan.start), KelNearestFloat(plan.interval))) {
    return error.Set(Error::eRefused, "%.200s", file.errorString());
  }
  const bool converted = io::Guarded(
      error, false, [&] { return WritePc2(reader, channel, plan, file, proceed, error); });
  if (!converted) file.discardWrite();
  return converted;
}

}  // namespace kelsdk::nc
