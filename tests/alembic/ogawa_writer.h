#pragma once

#include <cstdint>
#include <fstream>
#include <stdexcept>
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

  explicit OgawaWriter(const std::string& path) : out_(path, std::ios::binary) {
    Put("Ogawa\xff\0\1\0\0\0\0\0\0\0\0", 16);
  }

  /// The offset of what is written next.
  std::uint64_t Position() const { return position_; }

  // Each gives the slot that refers to what it wrote.

  std::uint64_t Data(std::string_view bytes) {
    const std::uint64_t size = bytes.size();
    Put(&size, sizeof size);
    Put(bytes.data(), size);
    return (position_ - size - sizeof size) | kDataBit;
  }

  std::uint64_t Group(std::vector<std::uint64_t> slots) {
    const std::uint64_t slot = position_;
    slots.insert(slots.begin(), slots.size());
    Put(slots.data(), slots.size() * sizeof slot);
    return slot;
  }

  /// A sample's block: a key, then the bytes.
  std::uint64_t Sample(const void* bytes, std::size_t size) {
    return Data(std::string(16, '\0').append(static_cast<const char*>(bytes), size));
  }

  /// The list of an array's samples, of one dimension each.
  std::uint64_t ArraySamples(const std::vector<std::uint64_t>& samples) {
    std::vector<std::uint64_t> slots;
    for (const std::uint64_t sample : samples) slots.insert(slots.end(), {sample, kEmptyData});
    return Group(slots);
  }

  std::uint64_t Compound(const std::vector<PropertySpec>& properties) {
    std::string headers;
    std::vector<std::uint64_t> slots;
    for (const PropertySpec& property : properties) {
      Append(headers, InfoWord(property));
      if (property.kind != 0) {
        Append(headers, property.sampleCount);
        Append(headers, property.timeSampling);
      }
      AppendText(headers, property.name);
      if (!property.metadata.empty()) AppendText(headers, property.metadata);
      slots.push_back(property.slot);
    }
    slots.push_back(Data(headers));
    return Group(slots);
  }

  std::uint64_t Object(std::uint64_t properties, const std::vector<ObjectSpec>& children) {
    std::string headers;
    std::vector<std::uint64_t> slots = {properties};
    for (const ObjectSpec& child : children) {
      AppendText(headers, child.name);
      headers += '\xff';
      AppendText(headers, child.metadata);
      slots.push_back(child.slot);
    }
    headers.append(32, '\0');
    slots.push_back(Data(headers));
    return Group(slots);
  }

  /// Writes the root, with the identity sampling and a uniform one from 0, then the header.
  void Finish(std::uint64_t topObject, double period = 1) {
    std::string times;
    for (const double one : {1.0, period}) {
      Append(times, std::uint32_t{1});
      Append(times, one);
      Append(times, std::uint32_t{1});
      Append(times, 0.0);
    }
    const auto layout = Data(std::string(4, '\0'));
    const auto library = Data({"\x3c\x2a\0\0", 4});  // 10812
    const std::uint64_t root =
        Group({layout, library, topObject, kEmptyData, Data(times), kEmptyData});
    out_.seekp(8);
    Put(&root, sizeof root);
    out_.close();
    if (!out_) throw std::runtime_error("cannot write an archive");
  }

  /// The metadata of an object or compound of polygon-mesh kind.
  static const char* MeshMetadata() { return "schema=AbcGeom_PolyMesh_v1"; }

 private:
  template <typename T>
  static void Append(std::string& bytes, T value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  static void AppendText(std::string& bytes, const std::string& text) {
    Append(bytes, static_cast<std::uint32_t>(text.size()));
    bytes += text;
  }

  static std::uint32_t InfoWord(const PropertySpec& property) {
    constexpr std::uint32_t kFourByteNumbers = 2 << 2;
    constexpr std::uint32_t kInlineMetadata = 0xffu << 20;
    auto info = static_cast<std::uint32_t>(property.kind) | kFourByteNumbers;
    if (!property.metadata.empty()) info |= kInlineMetadata;
    if (property.kind == 0) return info;
    info |= static_cast<std::uint32_t>(property.type) << 4 | property.extent << 12 | 0x100;
    return property.constant || property.sampleCount < 2 ? info | 0x800 : info;
  }

  void Put(const void* bytes, std::size_t size) {
    out_.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    position_ += size;
  }

  std::ofstream out_;
  std::uint64_t position_ = 0;
};

}  // namespace kelsdk::alembic::test
