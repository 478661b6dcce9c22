#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/bounds.h"
#include "tools/obj.h"

namespace kelcache {

/// Positions as 16-bit places in a box.
class Grid {
 public:
  static constexpr std::uint16_t kMostPlaces = 65534;
  static constexpr std::uint16_t kNowhere = 65535;  ///< all three places of a point not finite

  /// @param box  of all points; without a finite point all places are 0
  explicit Grid(const Bounds& box);

  double low(unsigned int axis) const { return low_[axis]; }
  double step(unsigned int axis) const { return step_[axis]; }
  /// The largest distance on an axis between a position and its place.
  double largestError() const;
  /// 3 places of a point.
  void Place(const float* point, std::uint16_t* places) const;

 private:
  double low_[3] = {};
  double step_[3] = {};
  double perStep_[3] = {};
};

/// The samples of several objects over some moments, as bytes that the page unpacks by themselves.
/// A record is
///
///     u8   how positions are predicted: 0 from the point before, 1 from the sample before, 2 from
///          the two samples before, 3 they equal the sample before; + 16: faces follow
///   [ u32  faces, u32 indices, then each count and each index as the difference from the one
///          before, zigzag, in four planes of bytes, the lowest first ]
///     u32  points                                                   (not with 3)
///          x of all points, then y, then z: differences from the prediction modulo 65536, zigzag,
///          the low bytes of all, then the high bytes                (not with 3)
///
/// Numbers are little-endian.
class ChunkPacker {
 public:
  /// @param pointStride  take every so many'th point
  ChunkPacker(const Grid& grid, std::size_t objects, unsigned int pointStride);

  /// From here on nothing stands on what came before.
  void Begin();
  /// @param faces  null where they are those of the object's last record
  void Add(std::size_t object, const float* points, unsigned int count, const Faces* faces);

  const std::vector<std::uint8_t>& bytes() const { return bytes_; }
  /// Values that the page keeps: 3 a point of every record but those that equal another.
  std::uint64_t values() const { return values_; }

 private:
  // Places of one sample, x of all points, then y, then z.
  using Places = std::vector<std::uint16_t>;
  struct Past {
    unsigned int samples = 0;  // of as many points, in a row
    Places last;
    Places before;
  };

  void Quantise(const float* points, unsigned int count);
  void AddFaces(const Faces& faces);
  void AddPlaces(std::uint8_t kind, const Past& past);

  const Grid& grid_;
  unsigned int pointStride_;
  std::vector<Past> pasts_;
  Places places_;
  std::vector<std::uint8_t> bytes_;
  std::uint64_t values_ = 0;
};

/// The bytes in zlib's format. Throws eFailed when there is no memory.
std::vector<std::uint8_t> Deflated(const std::vector<std::uint8_t>& bytes);

std::string Base64(const std::vector<std::uint8_t>& bytes);

}  // namespace kelcache
