#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "backends/alembic/hierarchy.h"
#include "backends/io/byte_reader.h"
#include "backends/io/error.h"

namespace kelsdk::alembic {

/// What a header says of metadata: a number in the archive's table, or the text itself.
struct MetadataReference {
  static constexpr std::uint8_t kInline = 255;
  std::uint8_t number = 0;
  std::string_view text;
};

/// One child object's header.
struct ObjectRecord {
  std::string_view name;
  MetadataReference metadata;
};

/// One property's header. `property` has all that the record says but name, object and parent.
struct PropertyRecord {
  std::string_view name;
  MetadataReference metadata;
  Property property;
};

/// The headers of an object's children, one after the other. Texts point into the block.
class ObjectHeaders {
 public:
  ObjectHeaders(const std::uint8_t* block, std::size_t size);

  /// False at the end, and when a record does not fit the block: Failed() tells which.
  bool Next(ObjectRecord& record);
  bool Failed() const { return !in_.Ok(); }

 private:
  io::ByteReader in_;
};

/// The headers of a compound's properties, one after the other. Texts point into the block.
class PropertyHeaders {
 public:
  PropertyHeaders(const std::uint8_t* block, std::size_t size) : in_(block, size) {}

  bool Next(PropertyRecord& record);
  bool Failed() const { return !in_.Ok(); }

 private:
  std::uint32_t Number(unsigned width);
  void ReadSampling(std::uint32_t info, unsigned width, Property& property);

  io::ByteReader in_;
};

bool ParseTimeSamplings(const std::vector<std::uint8_t>& block,
                        std::vector<TimeSampling>& samplings, io::Error& error);

/// Appends the strings of the table; the first one gets number 1, after the empty one.
bool ParseMetadataTable(const std::vector<std::uint8_t>& block, std::vector<std::string>& table,
                        io::Error& error);

}  // namespace kelsdk::alembic
