#include "python/outputs.h"

#include <climits>
#include <cmath>

#include "backends/zuPointCache2IO.h"
#include "host/KelNearestFloat.h"
#include "tools/moments.h"
#include "tools/numbers.h"
#include "tools/tool_error.h"

namespace kelpython {
namespace {

using kelcache::Array;
using kelcache::Failed;
using kelcache::ToolError;
using kelsdk::zuPointCache2IO;

ToolError Impossible(const std::string& file, double frame, const std::string& why) {
  return {kelcache::eUsage, file, "frame " + kelcache::RoundedText(frame) + " " + why};
}

class NCOutput : public Output {
 public:
  explicit NCOutput(const Plan& plan)
      : file_(plan.file),
        rate_(plan.rate),
        sink_(kelcache::MakeNCSink(
            plan.file, {plan.perFrame, plan.compact, rate_.ticksPerFrame, rate_.exactRate},
            plan.channels)) {}

  std::int64_t PlaceOf(double frame) const override {
    const double ticks = std::round(frame * rate_.exactTicks);
    if (ticks >= INT_MIN && ticks <= INT_MAX) return static_cast<std::int64_t>(ticks);
    throw Impossible(file_, frame, "lies outside the range of ticks");
  }

  void Expect(const Array& /*array*/) const override {}

  void Write(std::int64_t place, unsigned int channel, const Array& array) override {
    sink_->Write(channel, static_cast<int>(place), array);
  }

  void Finish() override { sink_->Finish(); }

 private:
  std::string file_;
  kelcache::TickRate rate_;
  std::unique_ptr<kelcache::Sink> sink_;
};

class PC2Output : public Output {
 public:
  explicit PC2Output(const Plan& plan)
      : file_(plan.file), points_(plan.points), samples_(plan.samples), start_(plan.start) {
    if (plan.points > INT_MAX || plan.samples > INT_MAX) {
      throw ToolError(kelcache::eUsage, file_,
                      "points and samples of a PC2 cache are at most 2147483647");
    }
    const float start = kelsdk::KelNearestFloat(start_);
    if (!(std::fabs(double(start) - start_) <= kelcache::kFrameTolerance)) {
      throw Impossible(file_, start_, "does not fit the 32-bit float of a PC2 cache's first frame");
    }
    if (!writer_.initialize(file_.c_str(), zuPointCache2IO::writeMode) ||
        !writer_.beginWriteData(static_cast<int>(points_), static_cast<int>(samples_), start, 1)) {
      throw Failed(file_, writer_.errorString());
    }
  }
  ~PC2Output() override { writer_.discardWrite(); }

  std::int64_t PlaceOf(double frame) const override {
    const double sample = std::round(frame - start_);
    if (!(std::fabs(frame - start_ - sample) <= kelcache::kFrameTolerance)) {
      throw Impossible(
          file_, frame,
          "is no whole number of frames after the first, " + kelcache::RoundedText(start_));
    }
    if (sample >= 0 && sample < samples_) return static_cast<std::int64_t>(sample);
    throw Impossible(file_, frame,
                     "is none of the " + std::to_string(samples_) + " samples from frame " +
                         kelcache::RoundedText(start_) + " on");
  }

  void Expect(const Array& array) const override {
    if (array.elements == points_) return;
    throw ToolError(kelcache::eUsage, file_,
                    "a PC2 cache has one point count: " + std::to_string(array.elements) +
                        " points, not " + std::to_string(points_));
  }

  void Write(std::int64_t place, unsigned int /*channel*/, const Array& array) override {
    // The back-end only reads what it is given.
    auto* const points = const_cast<float*>(static_cast<const float*>(array.values));
    if (!writer_.writeSample(static_cast<int>(place), points)) {
      throw Failed(file_, writer_.errorString());
    }
    ++written_;
  }

  void Finish() override {
    // Those that are missing would be zeros, which nobody wrote.
    if (written_ != samples_) {
      throw Failed(
          file_, std::to_string(written_) + " samples were written of " + std::to_string(samples_));
    }
    if (!writer_.endWriteData()) throw Failed(file_, writer_.errorString());
  }

 private:
  std::string file_;
  unsigned int points_;
  unsigned int samples_;
  double start_;
  unsigned int written_ = 0;
  zuPointCache2IO writer_;
};

}  // namespace

std::unique_ptr<Output> MakeNCOutput(const Plan& plan) {
  return std::make_unique<NCOutput>(plan);
}

std::unique_ptr<Output> MakePC2Output(const Plan& plan) {
  return std::make_unique<PC2Output>(plan);
}

}  // namespace kelpython
