// Prints what the compact forms of NC caches make of PC2 files, against packages for the same: how
// much smaller, and how fast.
//
//   kelcache_compact_bench FILE.pc2...
#include <fpzip.h>
#include <zfp.h>
#include <zlib.h>
#include <zstd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <numeric>
#include <random>

#include "backends/zuCacheFileInterface.h"
#include "bench/measure.h"
#include "bench/workload.h"

namespace kelbench {
namespace {

using kelsdk::zuCacheData;
using Library = kelsdk::zuCacheFileInterface;

constexpr int kTicksPerFrame = 250;
constexpr std::size_t kComponents = 3;
constexpr double kBounds[] = {1e-5, 1e-4, 1e-3};  // of the longest side of the box

using Buffer = std::vector<std::uint8_t>;

// A form that our caches can have.
struct Form {
  const char* name;
  const char* tag;
  unsigned int encoding;
  double bound;  // in the points' unit
};

double LongestSide(const Workload& workload) {
  double longest = 0;
  for (std::size_t c = 0; c < kComponents; ++c) {
    float low = workload.Pose(0)[c];
    float high = low;
    for (std::size_t i = c; i < workload.poses() * workload.valueCount(); i += kComponents) {
      low = std::min(low, workload.Pose(0)[i]);
      high = std::max(high, workload.Pose(0)[i]);
    }
    longest = std::max(longest, double(high) - low);
  }
  return longest;
}

void WriteFrames(const Workload& workload, const std::string& folder, const Form& form) {
  Library cache;
  unsigned int channel = 0;
  Require(cache.initFileWrite(folder.c_str(), "shot", Library::eSingleFile, form.tag,
                              kTicksPerFrame, {}, form.encoding) &&
              cache.addChannel("P", "Points", zuCacheData::eNCFloatVectorArray, channel) &&
              (form.bound == 0 || cache.setMaximumError(channel, form.bound)),
          "begin");
  for (unsigned int frame = 0; frame < workload.poses(); ++frame) {
    const int tick = static_cast<int>(frame) * kTicksPerFrame;
    void* const points = const_cast<float*>(workload.Pose(frame));
    Require(cache.beginWriteAtTime(tick) &&
                cache.addArrayData(channel, tick, points, workload.points()) &&
                cache.endWriteAtTime(),
            "write");
  }
  Require(cache.endFileWrite(), "end");
}

// A written cache, open for reading.
class Written {
 public:
  Written(const Workload& workload, const Form& form) : workload_(workload) {
    WriteFrames(workload, scratch_.folder(), form);
    Require(cache_.initFileRead("shot", scratch_.folder().c_str()), "open");
    points_.resize(workload.valueCount());
  }

  double TimesSmaller() const {
    unsigned long long arrays = 0;
    unsigned long long stored = 0;
    Require(cache_.arraySizes(arrays, stored), "sizes");
    return double(arrays) / double(stored);
  }

  void Visit(const std::vector<unsigned int>& frames) {
    for (const unsigned int frame : frames) {
      void* data = points_.data();
      unsigned int count = workload_.points();
      Require(cache_.getArrayDataAtTime(0, static_cast<int>(frame) * kTicksPerFrame, data, count),
              "read");
    }
  }

 private:
  const Workload& workload_;
  Scratch scratch_;
  Library cache_;
  std::vector<float> points_;
};

// The frames [first, first + count) as `count` rows for each component, as the packages like it.
std::vector<float> ByComponent(const Workload& workload, unsigned int first, unsigned int count) {
  std::vector<float> rows;
  rows.reserve(workload.valueCount() * count);
  for (std::size_t c = 0; c < kComponents; ++c) {
    for (unsigned int frame = first; frame < first + count; ++frame) {
      for (std::size_t i = c; i < workload.valueCount(); i += kComponents) {
        rows.push_back(workload.Pose(frame)[i]);
      }
    }
  }
  return rows;
}

std::size_t FpzipSize(const std::vector<float>& rows, unsigned int points, unsigned int frames,
                      Buffer* buffer) {
  buffer->resize(rows.size() * sizeof(float) + 4096);
  FPZ* const stream = fpzip_write_to_buffer(buffer->data(), buffer->size());
  stream->type = FPZIP_TYPE_FLOAT;
  stream->prec = 0;
  stream->nx = static_cast<int>(points);
  stream->ny = static_cast<int>(frames);
  stream->nz = 1;
  stream->nf = kComponents;
  const std::size_t size = fpzip_write(stream, rows.data());
  fpzip_write_close(stream);
  return size;
}

std::size_t ZfpSize(const std::vector<float>& rows, unsigned int points, unsigned int frames,
                    double bound, Buffer* buffer) {
  std::size_t total = 0;
  for (std::size_t c = 0; c < kComponents; ++c) {
    auto* const values = const_cast<float*>(rows.data()) + c * points * frames;
    zfp_field* const field = zfp_field_2d(values, zfp_type_float, points, frames);
    zfp_stream* const zfp = zfp_stream_open(nullptr);
    zfp_stream_set_accuracy(zfp, bound);
    buffer->resize(zfp_stream_maximum_size(zfp, field));
    bitstream* const bits = stream_open(buffer->data(), buffer->size());
    zfp_stream_set_bit_stream(zfp, bits);
    total += zfp_compress(zfp, field);
    stream_close(bits);
    zfp_stream_close(zfp);
    zfp_field_free(field);
  }
  return total;
}

// All frames, so many at once, through a package.
template <typename Size>
double TimesSmaller(const Workload& workload, unsigned int together, Size&& size) {
  std::size_t stored = 0;
  for (unsigned int first = 0; first < workload.poses(); first += together) {
    const unsigned int count = std::min(together, workload.poses() - first);
    stored += size(ByComponent(workload, first, count), count);
  }
  return double(workload.poses()) * double(workload.frameBytes()) / double(stored);
}

double ZipTimes(const Workload& workload) {
  const auto raw = static_cast<uLong>(workload.poses() * workload.frameBytes());
  Buffer buffer(compressBound(raw));
  uLongf size = static_cast<uLongf>(buffer.size());
  const auto* const bytes = reinterpret_cast<const Bytef*>(workload.Pose(0));
  Require(compress2(buffer.data(), &size, bytes, raw, Z_DEFAULT_COMPRESSION) == Z_OK, "zlib");
  return double(raw) / double(size);
}

double ZstdTimes(const Workload& workload) {
  const std::size_t raw = workload.poses() * workload.frameBytes();
  Buffer buffer(ZSTD_compressBound(raw));
  const std::size_t size = ZSTD_compress(buffer.data(), buffer.size(), workload.Pose(0), raw, 3);
  Require(ZSTD_isError(size) == 0, "zstd");
  return double(raw) / double(size);
}

struct Loaded {
  Workload workload;
  double side;
};

const char* NameOf(const Workload& workload) {
  return workload.name().empty() ? "waving cloth" : workload.name().c_str();
}

std::vector<Form> FormsOf(double side) {
  return {{"encoding 1", "ncc", 1, 0},
          {"encoding 2", "ncc", 2, 0},
          {"1e-5", "ncc", 2, kBounds[0] * side},
          {"1e-4", "ncc", 2, kBounds[1] * side},
          {"1e-3", "ncc", 2, kBounds[2] * side}};
}

void PrintSizes(const std::vector<Loaded>& caches) {
  std::puts(
      "| Times smaller       |     Raw, B | encoding 1 | encoding 2 |  1e-5 |  1e-4 |  1e-3 |   "
      "zip | "
      "zstd -3 | fpzip | fpzip 16 | zfp 1e-5 | zfp 1e-4 | zfp 1e-3 |\n"
      "|---------------------|-----------:|-----------:|-----------:|------:|------:|------:|------"
      ":|-"
      "-------:|------:|---------:|---------:|---------:|---------:|");
  const int widths[] = {10, 10, 5, 5, 5, 5, 7, 5, 8, 8, 8, 8};
  std::vector<double> logs(std::size(widths));
  for (const auto& [workload, side] : caches) {
    const Workload& of = workload;
    Buffer buffer;
    std::vector<double> times;
    for (const Form& form : FormsOf(side)) times.push_back(Written(of, form).TimesSmaller());
    times.push_back(ZipTimes(of));
    times.push_back(ZstdTimes(of));
    for (const unsigned int together : {1u, 16u}) {
      times.push_back(TimesSmaller(of, together, [&](const auto& rows, unsigned int count) {
        return FpzipSize(rows, of.points(), count, &buffer);
      }));
    }
    for (const double bound : kBounds) {
      times.push_back(TimesSmaller(of, 4, [&](const auto& rows, unsigned int count) {
        return ZfpSize(rows, of.points(), count, bound * side, &buffer);
      }));
    }
    std::printf("| %-19s | %10zu |", NameOf(of), of.poses() * of.frameBytes());
    for (std::size_t i = 0; i < times.size(); ++i) {
      std::printf(" %*.2f |", widths[i], times[i]);
      logs[i] += std::log(times[i]);
    }
    std::puts("");
    std::fflush(stdout);
  }
  std::printf("| geometric mean      | %10s |", "");
  for (std::size_t i = 0; i < logs.size(); ++i) {
    std::printf(" %*.2f |", widths[i], std::exp(logs[i] / double(caches.size())));
  }
  std::puts("\n");
}

void PrintSpeeds(const std::vector<Loaded>& caches) {
  std::puts(
      "| GB/s of points      | Form       | Points | Frames | Written | Forward | Backward | "
      "Random | "
      "fpzip 16 written | zfp 1e-4 written |\n"
      "|---------------------|------------|-------:|-------:|--------:|--------:|---------:|-------"
      ":|-"
      "----------------:|-----------------:|");
  for (const auto& [workload, side] : caches) {
    const Workload& of = workload;
    const Form raw = {"raw", "ncx", 2, 0};
    std::vector<Form> forms = FormsOf(side);
    forms.insert(forms.begin(), raw);
    for (const Form& form : forms) {
      const Scratch scratch;
      const auto cache = std::make_shared<Written>(of, form);
      std::vector<unsigned int> forward(of.poses());
      std::iota(forward.begin(), forward.end(), 0u);
      const std::vector<unsigned int> backward(forward.rbegin(), forward.rend());
      std::vector<unsigned int> random = forward;
      std::shuffle(random.begin(), random.end(), std::mt19937(1));
      std::vector<Contender> ways = {{"write", [&] { WriteFrames(of, scratch.folder(), form); }},
                                     {"forward", [&] { cache->Visit(forward); }},
                                     {"backward", [&] { cache->Visit(backward); }},
                                     {"random", [&] { cache->Visit(random); }}};
      const bool withPackages = &form == &forms.front();
      Buffer buffer;
      const auto all = std::make_shared<std::vector<float>>();
      if (withPackages) {
        const unsigned int together = std::min(16u, of.poses());
        *all = ByComponent(of, 0, together);
        ways.push_back(
            {"fpzip", [&, together] { FpzipSize(*all, of.points(), together, &buffer); }});
        ways.push_back({"zfp", [&, together] {
                          ZfpSize(*all, of.points(), together, kBounds[1] * side, &buffer);
                        }});
      }
      const std::vector<Timing> timings = Measure(ways);
      std::printf("| %-19s | %-10s | %6u | %6u |", NameOf(of), form.name, of.points(), of.poses());
      const int widths[] = {7, 7, 8, 6, 16, 16};
      for (std::size_t i = 0; i < std::size(widths); ++i) {
        const double bytes = i < 4 ? double(of.poses()) * double(of.frameBytes())
                                   : double(all->size()) * sizeof(float);
        i < timings.size() ? std::printf(" %*.2f |", widths[i], bytes / timings[i].seconds / 1e9)
                           : std::printf(" %*s |", widths[i], "");
      }
      std::puts("");
      std::fflush(stdout);
    }
  }
}

}  // namespace
}  // namespace kelbench

int main(int argumentCount, char** arguments) {
  std::vector<kelbench::Loaded> caches;
  for (int i = 1; i < argumentCount; ++i) {
    kelbench::Workload workload = kelbench::Workload::FromPC2(arguments[i]);
    const double side = kelbench::LongestSide(workload);
    caches.push_back({std::move(workload), side});
  }
  caches.push_back({kelbench::Workload::Cloth(100'000, 48), 0});
  caches.back().side = kelbench::LongestSide(caches.back().workload);
  kelbench::PrintSizes(caches);
  kelbench::PrintSpeeds(caches);
}
