#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/output.h"
#include "tools/source.h"
#include "tools/terminal.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct DiffOptions {
  std::string a;
  std::string b;
  std::string channel;
  double tolerance = 0;
};

// Times of NC caches are rounded to ticks: what differs by half a tick is the same time.
constexpr double kTimeTolerance = 0.5 / 6000 + 1e-9;  // seconds

struct Largest {
  double difference = 0;
  std::string where;
};

class Comparison {
 public:
  explicit Comparison(double tolerance) : tolerance_(tolerance) {}

  void Differs(const std::string& line) {
    PrintLine(stdout, line);
    ++differences_;
  }

  void Compare(const std::string& moment, const float* a, const float* b, unsigned int length,
               unsigned int components) {
    unsigned int differing = 0;
    for (unsigned int i = 0; i < length; ++i) {
      if (Same(a[i], b[i])) continue;
      const double difference = std::fabs(double(a[i]) - double(b[i]));
      if (difference <= tolerance_) continue;
      ++differing;
      // What is not finite on one side only is as far away as can be.
      const double size = std::isfinite(difference) ? difference : HUGE_VAL;
      if (size > largest_.difference) {
        largest_ = {size, moment + ", element " + std::to_string(i / components) + ", value " +
                              std::to_string(i % components) + ": " + ShortestText(a[i]) + " and " +
                              ShortestText(b[i])};
      }
    }
    if (differing != 0) {
      Differs(moment + ": " + std::to_string(differing) + " of " + std::to_string(length) +
              " values differ");
    }
  }

  EExit Finish() const {
    if (differences_ == 0) return eDone;
    if (largest_.difference > 0) {
      PrintLine(stdout, "largest difference " + ShortestText(largest_.difference) + " at " +
                            largest_.where);
    }
    return eFound;
  }

 private:
  static bool Same(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }

  double tolerance_;
  unsigned int differences_ = 0;
  Largest largest_;
};

// An NC cache can only count whole ticks per frame: 29.97 and 30 are one rate to it.
bool SameRate(const CacheSummary& a, const CacheSummary& b) {
  return a.frameRate && b.frameRate &&
         static_cast<int>(6000 / *a.frameRate) == static_cast<int>(6000 / *b.frameRate);
}

// At one rate frames are compared, which 29.97 and 30 have in common, otherwise seconds.
bool SameTime(const Moment& a, const Moment& b, const CacheSummary& ofA, const CacheSummary& ofB) {
  if (SameRate(ofA, ofB)) {
    return std::fabs(*a.frame - *b.frame) <= kTimeTolerance * *ofA.frameRate;
  }
  return std::fabs(a.seconds - b.seconds) <= kTimeTolerance;
}

std::string MomentText(const Moment& moment) {
  return moment.frame ? "frame " + RoundedText(*moment.frame) : RoundedText(moment.seconds) + " s";
}

void CompareChannels(Source& a, const ChannelSummary& inA, Source& b, const ChannelSummary& inB,
                     Comparison* comparison) {
  const std::string label = "channel " + inA.name.value_or(std::to_string(inA.index)) + ": ";
  // A copy holds elements of other lengths than 1 and 3 as single values.
  const unsigned int components = std::max(inA.components, inB.components);
  if (inA.components != inB.components && std::min(inA.components, inB.components) != 1) {
    return comparison->Differs(label + std::to_string(inA.components) + " and " +
                               std::to_string(inB.components) + " values an element");
  }
  Moments momentsA = a.MomentsOf(inA);
  Moments momentsB = b.MomentsOf(inB);
  if (momentsA.count() != momentsB.count()) {
    comparison->Differs(label + std::to_string(momentsA.count()) + " and " +
                        std::to_string(momentsB.count()) + " samples");
  }
  for (unsigned int i = 0; i < std::min(momentsA.count(), momentsB.count()); ++i) {
    const Moment atA = momentsA.At(i);
    const Moment atB = momentsB.At(i);
    const std::string moment = label + MomentText(atA);
    if (!SameTime(atA, atB, a.summary(), b.summary())) {
      comparison->Differs(label + "sample " + std::to_string(i) + " at " +
                          RoundedText(atA.seconds) + " and " + RoundedText(atB.seconds) + " s");
    }
    unsigned int lengthA = 0;
    unsigned int lengthB = 0;
    const float* valuesA = a.FetchFloats(inA, atA, &lengthA);
    const float* valuesB = b.FetchFloats(inB, atB, &lengthB);
    if (lengthA != lengthB) {
      comparison->Differs(moment + ": " + std::to_string(lengthA / components) + " and " +
                          std::to_string(lengthB / components) + " elements");
    }
    comparison->Compare(moment, valuesA, valuesB, std::min(lengthA, lengthB), components);
  }
}

// A PC2 cache has no frame rate: it is compared at the other's.
double RateFor(Format format, const std::string& other, Format otherFormat) {
  if (format != kelsdk::KelCache::ePC2Format || otherFormat == kelsdk::KelCache::ePC2Format) {
    return 0;
  }
  return Source(other, otherFormat, 0).summary().frameRate.value_or(0);
}

EExit Diff(const DiffOptions& options) {
  const Format formatA = FormatOf(options.a, "");
  const Format formatB = FormatOf(options.b, "");
  Source a(options.a, formatA, RateFor(formatA, options.b, formatB));
  Source b(options.b, formatB, RateFor(formatB, options.a, formatA));
  Comparison comparison(options.tolerance);
  if (a.summary().frameRate && b.summary().frameRate && !SameRate(a.summary(), b.summary())) {
    comparison.Differs("frame rate " + RoundedText(*a.summary().frameRate) + " and " +
                       RoundedText(*b.summary().frameRate));
  }
  const bool pc2 = a.summary().pc2 || b.summary().pc2;
  if (!options.channel.empty() || pc2) {
    const auto& ofA = a.summary().pc2 || options.channel.empty() ? a.summary().ChannelAt(0)
                                                                 : a.FindChannel(options.channel);
    const auto& ofB = b.summary().pc2 || options.channel.empty() ? b.summary().ChannelAt(0)
                                                                 : b.FindChannel(options.channel);
    CompareChannels(a, ofA, b, ofB, &comparison);
    return comparison.Finish();
  }
  const size_t countA = a.summary().channels.size();
  const size_t countB = b.summary().channels.size();
  if (countA != countB) {
    comparison.Differs(std::to_string(countA) + " and " + std::to_string(countB) + " channels");
  }
  for (size_t i = 0; i < std::min(countA, countB); ++i) {
    CompareChannels(a, a.summary().channels[i], b, b.summary().channels[i], &comparison);
  }
  return comparison.Finish();
}

}  // namespace

void AddDiff(CLI::App& app, Work* work) {
  const auto options = std::make_shared<DiffOptions>();
  CLI::App* verb = app.add_subcommand(
      "diff",
      "Compares two caches of any formats sample by sample. Counts, times and values as floats; "
      "prints a line per difference and the largest one. Exit status 0 equal, 1 different.");
  verb->footer("Example:\n  kelcache diff a.pc2 b.xml --tolerance 1e-6");
  verb->add_option("A", options->a, "One cache")->required();
  verb->add_option("B", options->b, "The other")->required();
  verb->add_option("--channel", options->channel,
                   "Channel number or name (default: all; the first where one is PC2)");
  verb->add_option("--tolerance", options->tolerance, "Values that differ by no more are equal")
      ->check(NumberFromZero())
      ->capture_default_str();
  verb->callback([=] { *work = [=] { return Diff(*options); }; });
}

}  // namespace kelcache
