#include "tools/diff.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "tools/numbers.h"
#include "tools/source.h"

namespace kelcache {
namespace {

// A type that has every value of both: 64-bit integers are more than a double tells apart.
template <typename A, typename B>
using Wide = std::conditional_t<(std::is_integral_v<A> && sizeof(A) == 8) ||
                                    (std::is_integral_v<B> && sizeof(B) == 8),
                                long double, double>;
static_assert(std::numeric_limits<long double>::digits >= 64);

class Comparison {
 public:
  Comparison(double tolerance, const Say& differs) : tolerance_(tolerance), differs_(differs) {}

  void Differs(const std::string& line) {
    differs_(line);
    ++found_.count;
  }

  // Of both arrays the values that they have in common.
  void Compare(const std::string& moment, const Array& a, const Array& b, unsigned int components) {
    const std::size_t length = std::min(a.Count(), b.Count());
    if (length == 0) return;
    if (a.type == b.type && std::memcmp(a.values, b.values, length * SizeOf(a.type)) == 0) return;
    const std::size_t differing = a.Visited([&](const auto* valuesA) {
      return b.Visited([&](const auto* valuesB) {
        return CountDiffering(valuesA, valuesB, length, [&](std::size_t i, double difference) {
          found_.largest = difference;
          found_.where = moment + ", element " + std::to_string(i / components) + ", value " +
                         std::to_string(i % components) + ": " + ValueText(a, i) + " and " +
                         ValueText(b, i);
        });
      });
    });
    if (differing != 0) {
      Differs(moment + ": " + std::to_string(differing) + " of " + std::to_string(length) +
              " values differ");
    }
  }

  const Differences& found() const { return found_; }

 private:
  template <typename A, typename B, typename Note>
  std::size_t CountDiffering(const A* a, const B* b, std::size_t length, Note&& note) {
    using W = Wide<A, B>;
    std::size_t differing = 0;
    for (std::size_t i = 0; i < length; ++i) {
      const W one = static_cast<W>(a[i]);
      const W other = static_cast<W>(b[i]);
      if (one == other || (std::isnan(one) && std::isnan(other))) continue;
      const W difference = std::fabs(one - other);
      if (difference <= static_cast<W>(tolerance_)) continue;
      ++differing;
      // What is not finite on one side only is as far away as can be.
      const double size = std::isfinite(difference) ? static_cast<double>(difference) : HUGE_VAL;
      if (size > found_.largest) note(i, size);
    }
    return differing;
  }

  double tolerance_;
  const Say& differs_;
  Differences found_;
};

// How far apart two times may be that mean the same: ticks are whole, and the frames of a PC2 file
// are floats.
double TimeTolerance(const Source& a, const Source& b, const Moment& at) {
  double tolerance = kSameClock;
  for (const Source* source : {&a, &b}) {
    const CacheSummary& summary = source->summary();
    if (summary.onTicks) tolerance = kHalfTick / kTicksPerSecond + kSameClock;
    if (summary.pc2) {
      tolerance += std::fabs(at.seconds) * double(std::numeric_limits<float>::epsilon());
    }
  }
  return tolerance;
}

// Both with as many digits as tell them apart.
std::string TwoTimes(double a, double b) {
  char one[40];
  char other[40];
  for (int digits = 7; digits <= 17; ++digits) {
    std::snprintf(one, sizeof one, "%.*g", digits, a);
    std::snprintf(other, sizeof other, "%.*g", digits, b);
    if (std::strcmp(one, other) != 0) break;
  }
  return std::string(one) + " and " + other;
}

class ChannelComparer {
 public:
  ChannelComparer(Source& a, Source& b, Comparison* comparison, Watch& watch)
      : a_(a), b_(b), comparison_(*comparison), watch_(watch) {}

  void Compare(const ChannelSummary& inA, const ChannelSummary& inB) {
    const std::string label = "channel " + inA.name.value_or(std::to_string(inA.index)) + ": ";
    // A copy holds elements of other lengths than 1 and 3 as single values.
    const unsigned int components = std::max(inA.components, inB.components);
    if (inA.components != inB.components && std::min(inA.components, inB.components) != 1) {
      return comparison_.Differs(label + std::to_string(inA.components) + " and " +
                                 std::to_string(inB.components) + " values an element");
    }
    Moments momentsA = a_.MomentsOf(inA);
    Moments momentsB = b_.MomentsOf(inB);
    if (momentsA.count() != momentsB.count()) {
      comparison_.Differs(label + std::to_string(momentsA.count()) + " and " +
                          std::to_string(momentsB.count()) + " samples");
    }
    const std::uint64_t common = std::min(momentsA.count(), momentsB.count());
    watch_.Begin(common, b_.summary().file);
    for (std::uint64_t i = 0; i < common; ++i) {
      const Moment atA = momentsA.At(i);
      const Moment atB = momentsB.At(i);
      CompareTimes(label, i, atA, atB);
      CompareSample(label + MomentText(atA), {inA, atA}, {inB, atB}, components);
      watch_.ThrowIfInterrupted();
      watch_.Show(i + 1);
    }
    watch_.End();
  }

 private:
  struct Sample {
    const ChannelSummary& channel;
    const Moment& moment;
  };

  void CompareTimes(const std::string& label, std::uint64_t index, const Moment& a,
                    const Moment& b) {
    if (std::fabs(a.seconds - b.seconds) <= TimeTolerance(a_, b_, a)) return;
    comparison_.Differs(label + "sample " + std::to_string(index) + " at " +
                        TwoTimes(a.seconds, b.seconds) + " s");
  }

  void CompareSample(const std::string& moment, const Sample& a, const Sample& b,
                     unsigned int components) {
    const Array valuesA = a_.Fetch(a.channel, a.moment);
    const Array valuesB = b_.Fetch(b.channel, b.moment);
    if (valuesA.Count() != valuesB.Count()) {
      comparison_.Differs(moment + ": " + std::to_string(valuesA.Count() / components) + " and " +
                          std::to_string(valuesB.Count() / components) + " elements");
    }
    comparison_.Compare(moment, valuesA, valuesB, components);
  }

  Source& a_;
  Source& b_;
  Comparison& comparison_;
  Watch& watch_;
};

// A PC2 cache has no frame rate: it is compared at the other's.
kelsdk::KelFrameRate RateFor(Format format, const std::string& other, Format otherFormat) {
  if (!RowOf(format).assumesRate || RowOf(otherFormat).assumesRate) return {0, 0};
  return Source(other, otherFormat).summary().rate;
}

// A PC2 cache has one channel, whatever the other cache calls its own.
const ChannelSummary& ChannelOf(const Source& source, const Source& other,
                                const std::string& channel) {
  const bool onlyThisIsPC2 = source.summary().pc2 && !other.summary().pc2;
  return source.summary().FindChannel(channel.empty() || onlyThisIsPC2 ? "0" : channel);
}

void CompareAll(Source& a, Source& b, const DiffOptions& options, Comparison* comparison,
                Watch& watch) {
  ChannelComparer comparer(a, b, comparison, watch);
  if (!options.channel.empty() || a.summary().pc2 || b.summary().pc2) {
    return comparer.Compare(ChannelOf(a, b, options.channel), ChannelOf(b, a, options.channel));
  }
  const size_t countA = a.summary().channels.size();
  const size_t countB = b.summary().channels.size();
  if (countA != countB) {
    comparison->Differs(std::to_string(countA) + " and " + std::to_string(countB) + " channels");
  }
  for (size_t i = 0; i < std::min(countA, countB); ++i) {
    comparer.Compare(a.summary().channels[i], b.summary().channels[i]);
  }
}

}  // namespace

Differences Diff(const std::string& fileA, const std::string& fileB, const DiffOptions& options,
                 const Say& differs, Watch& watch) {
  const Format formatA = FormatOf(fileA, "");
  const Format formatB = FormatOf(fileB, "");
  Source a(fileA, formatA, RateFor(formatA, fileB, formatB));
  Source b(fileB, formatB, RateFor(formatB, fileA, formatA));
  const bool missingA = NoteWhatIsMissing(a, {}, watch);
  const bool missingB = NoteWhatIsMissing(b, {}, watch);
  Comparison comparison(options.tolerance, differs);
  const kelsdk::KelFrameRate& rateA = a.summary().rate;
  const kelsdk::KelFrameRate& rateB = b.summary().rate;
  if (rateA.IsValid() && rateB.IsValid() && !(rateA == rateB)) {
    comparison.Differs("frame rate " + TwoTimes(rateA.PerSecond(), rateB.PerSecond()));
  }
  CompareAll(a, b, options, &comparison, watch);
  Differences found = comparison.found();
  found.missing = missingA || missingB;
  return found;
}

}  // namespace kelcache
