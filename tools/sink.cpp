#include "tools/sink.h"

#include "backends/zuPointCache2IO.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

using kelsdk::zuCacheFileInterface;
using kelsdk::zuPointCache2IO;

class PC2Sink : public Sink {
 public:
  PC2Sink(const std::string& file, unsigned int points, unsigned int samples, float startFrame,
          float sampleRate)
      : file_(file), points_(points) {
    if (!writer_.initialize(file.c_str(), zuPointCache2IO::writeMode) ||
        !writer_.beginWriteData(static_cast<int>(points), static_cast<int>(samples), startFrame,
                                sampleRate)) {
      throw Failed(file_, writer_.errorString());
    }
  }
  ~PC2Sink() override { writer_.discardWrite(); }

  void Write(unsigned int /*channel*/, int /*ticks*/, const Array& array) override {
    if (array.elements != points_) {
      throw Failed(file_, "a PC2 cache has one point count: " + std::to_string(array.elements) +
                              " points after " + std::to_string(points_));
    }
    // The back-end only reads what it is given.
    auto* points = const_cast<float*>(AsFloats(array, &floats_));
    if (!writer_.writeSample(sample_++, points)) throw Failed(file_, writer_.errorString());
  }
  bool Repeat(unsigned int /*channel*/, int /*ticks*/, unsigned int /*ofChannel*/,
              int /*ofTicks*/) override {
    return false;
  }

  void Finish() override {
    if (!writer_.endWriteData()) throw Failed(file_, writer_.errorString());
  }

 private:
  std::string file_;
  unsigned int points_;
  int sample_ = 0;
  std::vector<float> floats_;
  zuPointCache2IO writer_;
};

class NCSink : public Sink {
 public:
  NCSink(const std::string& file, const NCLayout& layout, const std::vector<SinkChannel>& channels)
      : file_(file), channels_(channels) {
    const NCName name(file);
    const auto form =
        layout.perFrame ? zuCacheFileInterface::eFilePerFrame : zuCacheFileInterface::eSingleFile;
    Expect(writer_.initFileWrite(name.folder.c_str(), name.baseName.c_str(), form,
                                 layout.compact ? "ncc" : "ncx", layout.ticksPerFrame,
                                 layout.exactRate, layout.compactEncoding));
    for (const SinkChannel& channel : channels) {
      unsigned int index = 0;
      Expect(writer_.addChannel(channel.name.c_str(), channel.interpretation.c_str(), channel.type,
                                channel.interval, index));
      if (channel.maximumError != 0) Expect(writer_.setMaximumError(index, channel.maximumError));
    }
  }
  ~NCSink() override { writer_.discardWrite(); }

  void Write(unsigned int channel, int ticks, const Array& array) override {
    const ElementType type = channels_[channel].type;
    std::string problem;
    const void* const values = converter_.Convert(array, type, &problem);
    if (values == nullptr) {
      throw Failed(file_, "channel " + channels_[channel].name + ": " + problem +
                              " can not be kept exactly");
    }
    EnterBlock(ticks);
    const auto elements = static_cast<unsigned int>(array.Count() / kelsdk::GetTypeLength(type));
    Expect(writer_.addArrayData(channel, ticks, const_cast<void*>(values), elements));
  }

  bool Repeat(unsigned int channel, int ticks, unsigned int ofChannel, int ofTicks) override {
    EnterBlock(ticks);
    return writer_.repeatArrayData(channel, ticks, ofChannel, ofTicks);
  }

  void Finish() override {
    if (inBlock_) Expect(writer_.endWriteAtTime());
    Expect(writer_.endFileWrite());
  }

 private:
  void EnterBlock(int ticks) {
    if (inBlock_ && ticks == ticks_) return;
    Expect(writer_.beginWriteAtTime(ticks));
    inBlock_ = true;
    ticks_ = ticks;
  }

  void Expect(bool done) const {
    if (!done) throw Failed(file_, writer_.errorString());
  }

  std::string file_;
  std::vector<SinkChannel> channels_;
  ElementConverter converter_;
  zuCacheFileInterface writer_;
  int ticks_ = 0;
  bool inBlock_ = false;
};

}  // namespace

std::unique_ptr<Sink> MakePC2Sink(const std::string& file, unsigned int points,
                                  unsigned int samples, float startFrame, float sampleRate) {
  return std::make_unique<PC2Sink>(file, points, samples, startFrame, sampleRate);
}

std::unique_ptr<Sink> MakeNCSink(const std::string& file, const NCLayout& layout,
                                 const std::vector<SinkChannel>& channels) {
  return std::make_unique<NCSink>(file, layout, channels);
}

}  // namespace kelcache
