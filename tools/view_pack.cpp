#include "tools/view_pack.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

enum EPrediction : std::uint8_t {
  ePointBefore = 0,
  eSampleBefore = 1,
  eTwoSamplesBefore = 2,
  eEqual = 3,
  eFacesFollow = 16,
};

std::uint16_t Zigzag(std::uint16_t difference) {
  const auto isNegative = static_cast<std::uint16_t>(-(difference >> 15));
  return static_cast<std::uint16_t>((difference << 1) ^ isNegative);
}

// What is left of each place after its prediction.
template <typename Predict, typename Take>
void Residuals(const std::vector<std::uint16_t>& places, Predict&& predict, Take&& take) {
  for (std::size_t i = 0; i < places.size(); ++i) {
    take(i, Zigzag(static_cast<std::uint16_t>(places[i] - predict(i))));
  }
}

template <typename Take>
void ResidualsOf(std::uint8_t kind, const std::vector<std::uint16_t>& places,
                 const std::vector<std::uint16_t>& last, const std::vector<std::uint16_t>& before,
                 Take&& take) {
  const std::size_t points = places.size() / 3;
  switch (kind) {
    case eSampleBefore:
      return Residuals(
          places, [&](std::size_t i) { return last[i]; }, take);
    case eTwoSamplesBefore:
      return Residuals(
          places, [&](std::size_t i) { return 2 * last[i] - before[i]; }, take);
    default:
      return Residuals(
          places, [&](std::size_t i) { return i % points == 0 ? std::uint16_t{0} : places[i - 1]; },
          take);
  }
}

void AppendNumber(std::vector<std::uint8_t>* bytes, std::uint32_t number) {
  for (unsigned int shift = 0; shift < 32; shift += 8) {
    bytes->push_back(static_cast<std::uint8_t>(number >> shift));
  }
}

void AppendDifferences(std::vector<std::uint8_t>* bytes, const std::vector<std::uint32_t>& values) {
  const std::size_t begin = bytes->size();
  bytes->resize(begin + values.size() * 4);
  std::uint32_t last = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::uint32_t difference = values[i] - last;
    const std::uint32_t zigzag = (difference << 1) ^ (difference >> 31 != 0 ? UINT32_MAX : 0U);
    last = values[i];
    for (std::size_t plane = 0; plane < 4; ++plane) {
      (*bytes)[begin + plane * values.size() + i] =
          static_cast<std::uint8_t>(zigzag >> (8 * plane));
    }
  }
}

}  // namespace

Grid::Grid(const Bounds& box) {
  for (std::size_t k = 0; k < std::min<std::size_t>(3, box.low.size()); ++k) {
    if (!(box.low[k] <= box.high[k])) continue;
    low_[k] = box.low[k];
    step_[k] = (double(box.high[k]) - low_[k]) / kMostPlaces;
    perStep_[k] = step_[k] > 0 ? 1 / step_[k] : 0;
  }
}

double Grid::largestError() const {
  return std::max({step_[0], step_[1], step_[2]}) / 2;
}

void Grid::Place(const float* point, std::uint16_t* places) const {
  const bool isFinite =
      std::isfinite(point[0]) && std::isfinite(point[1]) && std::isfinite(point[2]);
  for (std::size_t k = 0; k < 3; ++k) {
    places[k] = kNowhere;
    if (!isFinite) continue;
    const double place = (double(point[k]) - low_[k]) * perStep_[k] + 0.5;
    places[k] = static_cast<std::uint16_t>(std::min<double>(place, kMostPlaces));
  }
}

ChunkPacker::ChunkPacker(const Grid& grid, std::size_t objects, unsigned int pointStride)
    : grid_(grid), pointStride_(pointStride), pasts_(objects) {}

void ChunkPacker::Begin() {
  bytes_.clear();
  values_ = 0;
  for (Past& past : pasts_) past.samples = 0;
}

void ChunkPacker::Quantise(const float* points, unsigned int count) {
  const std::size_t kept = (std::size_t{count} + pointStride_ - 1) / pointStride_;
  places_.resize(kept * 3);
  for (std::size_t i = 0; i < kept; ++i) {
    std::uint16_t place[3];
    grid_.Place(points + i * pointStride_ * 3, place);
    for (std::size_t k = 0; k < 3; ++k) places_[k * kept + i] = place[k];
  }
}

void ChunkPacker::AddFaces(const Faces& faces) {
  AppendNumber(&bytes_, static_cast<std::uint32_t>(faces.counts.size()));
  AppendNumber(&bytes_, static_cast<std::uint32_t>(faces.indices.size()));
  AppendDifferences(&bytes_, faces.counts);
  AppendDifferences(&bytes_, faces.indices);
}

void ChunkPacker::AddPlaces(std::uint8_t kind, const Past& past) {
  AppendNumber(&bytes_, static_cast<std::uint32_t>(places_.size() / 3));
  const std::size_t begin = bytes_.size();
  bytes_.resize(begin + places_.size() * 2);
  const std::size_t points = places_.size() / 3;
  std::uint8_t* const out = bytes_.data() + begin;
  ResidualsOf(kind, places_, past.last, past.before, [&](std::size_t i, std::uint16_t residual) {
    const std::size_t place = i + i / points * points;
    out[place] = static_cast<std::uint8_t>(residual);
    out[place + points] = static_cast<std::uint8_t>(residual >> 8);
  });
  values_ += places_.size();
}

void ChunkPacker::Add(std::size_t object, const float* points, unsigned int count,
                      const Faces* faces) {
  Past& past = pasts_[object];
  Quantise(points, count);
  if (past.samples != 0 && past.last.size() != places_.size()) past.samples = 0;
  std::uint8_t kind = ePointBefore;
  if (past.samples != 0 && past.last == places_) {
    kind = eEqual;
  } else {
    std::uint64_t least = UINT64_MAX;
    for (std::uint8_t tried = 0; tried <= std::min(past.samples, 2U); ++tried) {
      std::uint64_t sum = 0;
      ResidualsOf(tried, places_, past.last, past.before,
                  [&sum](std::size_t, std::uint16_t residual) { sum += residual; });
      if (sum < least) kind = tried;
      least = std::min(least, sum);
    }
  }
  bytes_.push_back(faces != nullptr ? kind | eFacesFollow : kind);
  if (faces != nullptr) AddFaces(*faces);
  if (kind != eEqual) AddPlaces(kind, past);
  std::swap(past.before, past.last);
  std::swap(past.last, places_);
  past.samples = std::min(past.samples + 1, 2U);
}

std::vector<std::uint8_t> Deflated(const std::vector<std::uint8_t>& bytes) {
  uLongf size = compressBound(bytes.size());
  std::vector<std::uint8_t> deflated(size);
  if (compress2(deflated.data(), &size, bytes.data(), bytes.size(), Z_DEFAULT_COMPRESSION) !=
      Z_OK) {
    throw ToolError(eFailed, "no memory to compress a page");
  }
  deflated.resize(size);
  return deflated;
}

std::string Base64(const std::vector<std::uint8_t>& bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t there = std::min<std::size_t>(3, bytes.size() - i);
    std::uint32_t group = std::uint32_t{bytes[i]} << 16;
    if (there > 1) group |= std::uint32_t{bytes[i + 1]} << 8;
    if (there > 2) group |= bytes[i + 2];
    for (std::size_t digit = 0; digit < 4; ++digit) {
      text += digit <= there ? kDigits[group >> (18 - 6 * digit) & 63] : '=';
    }
  }
  return text;
}

}  // namespace kelcache
