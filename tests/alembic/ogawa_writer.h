#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "backends/alembic/plain_type.h"

namespace kelsdk::alembic::test {

/// Writes Ogawa archives for tests and benchmarks: sound ones, and ones that no sound writer makes,
/// since every slot may be any number. Things are written in the order of the calls, bottom up.
class OgawaWriter {
 public:
  static constexpr std::uint64_t kDataBit = std::uint64_t{1} << 63;
  static constexpr std::uint64_t kEmptyData = kDataBit;
  static constexpr std::uint64_t kEmptyGroup = 0;

  struct PropertySpec {
    std::string name = {};
    int kind = 2;  ///< 0 compound, 1 scalar, 2 array
    EPlainType type = EPlainType::eFloat32;
    unsigned extent = 1;
    std::uint32_t sampleCount = 0;  ///< all different, unless constant
    bool constant = false;
    std::uint32_t timeSampling = 0;
    std::string metadata = {};
    std::uint64_t slot = kEmptyGroup;
  };
  struct ObjectSpec {
    std::string name = {};
    std::string metadata = {};
    std::uint64_t slot = kEmptyGroup;
  };
  struct SamplingSpec {
    double period = 1;
    std::vector<double> times = {0};
  };

  explicit OgawaWriter(const std::string& path);

  /// The offset of what is written next.
  std::uint64_t Position() const { return position_; }

  // Each gives the slot that refers to what it wrote.
  std::uint64_t Data(std::string_view bytes);
  std::uint64_t Group(const std::vector<std::uint64_t>& slots);
  /// A sample's block: a key, then the bytes.
  std::uint64_t Sample(const void* bytes, std::size_t size);
  /// The list of an array's samples, of one dimension each.
  std::uint64_t ArraySamples(const std::vector<std::uint64_t>& samples);
  std::uint64_t Compound(const std::vector<PropertySpec>& properties);
  std::uint64_t Object(std::uint64_t properties, const std::vector<ObjectSpec>& children);

  /// Writes the root with the identity sampling and `samplings` after it, then the header.
  void Finish(std::uint64_t topObject, std::vector<SamplingSpec> samplings = {});

  /// The metadata of an object or compound of polygon-mesh kind.
  static const char* MeshMetadata() { return "schema=AbcGeom_PolyMesh_v1"; }

 private:
  void Put(const void* bytes, std::size_t size);

  std::ofstream out_;
  std::uint64_t position_ = 0;
};

}  // namespace kelsdk::alembic::test
