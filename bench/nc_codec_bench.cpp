// What the compact form makes of real and of made-up points: size against raw, and the speed of
// encoding and of decoding one sample after the other, in raw bytes per second on one core.
//
//   PC2 files   given in the environment variable KELCACHE_PC2, separated by ":"
//   cloth       100,172 points that wave, with noise of a thousandth in the last digits
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>

#include "backends/nc/codec.h"
#include "backends/zuPointCache2IO.h"
#include "bench/ratio.h"

namespace {

using kelsdk::zuCacheData;
using kelsdk::zuPointCache2IO;
using Samples = std::vector<std::vector<float>>;

constexpr auto kType = zuCacheData::eNCFloatVectorArray;

Samples ReadPc2(const std::string& path) {
  Samples samples;
  zuPointCache2IO file;
  if (!file.initialize(path.c_str(), zuPointCache2IO::readMode)) return samples;
  for (unsigned int i = 0; i < file.wholeSampleCount(); ++i) {
    unsigned int count = file.pointCount;
    samples.emplace_back(size_t{count} * 3);
    if (!file.readSample(i, samples.back().data(), count)) samples.pop_back();
  }
  return samples;
}

Samples MakeCloth() {
  std::mt19937 random(1);
  std::normal_distribution<float> noise(0, 1e-3f);
  Samples samples(60);
  for (size_t frame = 0; frame < samples.size(); ++frame) {
    for (size_t i = 0; i < 100172; ++i) {
      const float u = float(i % 316) / 316;
      const float v = float(i / 316) / 317;
      const float lift = std::sin(9 * u + 0.1f * float(frame)) * std::cos(7 * v) + noise(random);
      samples[frame].insert(samples[frame].end(), {u * 2, lift * 0.2f, v * 2});
    }
  }
  return samples;
}

void Codec(benchmark::State& state, const Samples& samples) {
  std::vector<std::uint8_t> encoded;
  kelsdk::io::Error error;
  double raw = 0;
  double stored = 0;
  double encoding = 0;
  double decoding = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (const std::vector<float>& sample : samples) {
      const auto count = static_cast<std::uint32_t>(sample.size() / 3);
      std::vector<float> decoded(sample.size());
      size_t size = 0;
      bool smaller = false;
      encoding += kelbench::Seconds(
          [&] { smaller = kelsdk::nc::EncodeArray(kType, sample.data(), count, &encoded, &size); });
      raw += double(sample.size()) * sizeof(float);
      stored += smaller ? double(size) : double(sample.size()) * sizeof(float);
      bool sound = true;
      decoding += kelbench::Seconds([&] {
        if (smaller) {
          sound =
              kelsdk::nc::DecodeArray(kType, encoded.data(), size, decoded.data(), count, error);
        }
      });
      if (!sound || (smaller && decoded != sample)) state.SkipWithError("not the same array");
    }
  }
  state.counters["smaller"] = raw / stored;
  state.counters["encode_GB/s"] = raw / encoding / 1e9;
  state.counters["decode_GB/s"] = raw / decoding / 1e9;
}

[[maybe_unused]] const bool registered = [] {
  const auto add = [](const std::string& name, const Samples& samples) {
    benchmark::RegisterBenchmark(("nc_codec/" + name).c_str(), [samples](benchmark::State& state) {
      Codec(state, samples);
    })->Unit(benchmark::kMillisecond);
  };
  add("cloth", MakeCloth());
  const char* const list = std::getenv("KELCACHE_PC2");
  std::string paths = list != nullptr ? list : "";
  while (!paths.empty()) {
    const size_t end = std::min(paths.find(':'), paths.size());
    const std::string path = paths.substr(0, end);
    add(path.substr(path.rfind('/') + 1), ReadPc2(path));
    paths.erase(0, end + 1);
  }
  return true;
}();

}  // namespace
