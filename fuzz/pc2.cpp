// Any bytes as a PC2 file. What opens must say truly how much it holds: exactly the whole samples
// are readable, and none of them beyond the room given.
#include <algorithm>
#include <cstring>
#include <vector>

#include "backends/zuPointCache2IO.h"
#include "fuzz/support.h"

using kelsdk::zuPointCache2IO;
using kelsdk::fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string path = kelsdk::fuzz::FileOf(bytes, size);
  zuPointCache2IO cache;
  if (!cache.initialize(path.c_str(), zuPointCache2IO::readMode)) {
    Require(*cache.errorString() != 0);
    return 0;
  }
  if (cache.version != 1) return 0;
  const unsigned int whole = cache.wholeSampleCount();
  Require(whole <= cache.sampleCount);
  Require(cache.pointCount == 0 ||
          32 + std::uint64_t{12} * cache.pointCount * whole <= std::uint64_t{size});
  if (whole == 0 || cache.pointCount > size) return 0;
  std::vector<float> points(std::size_t{3} * cache.pointCount);
  std::vector<float> two(2 * points.size());
  const unsigned int samples[] = {0, 1, whole - 1, whole, cache.sampleCount, 0xFFFFFFFF};
  for (const unsigned int sample : samples) {
    Require(cache.readSamples(sample, 2, two.data()) == (std::uint64_t{sample} + 2 <= whole));
    unsigned int count = cache.pointCount;
    const bool read = cache.readSample(sample, points.data(), count);
    Require(read == (sample < whole));
    if (!read) continue;
    const std::size_t offset = 32 + std::size_t{12} * cache.pointCount * sample;
    if (points.empty()) continue;
    Require(std::memcmp(points.data(), bytes + offset, points.size() * sizeof(float)) == 0);
    Require(sample + 1 >= whole ||
            std::memcmp(two.data(), bytes + offset, two.size() * sizeof(float)) == 0);
  }
  return 0;
}
