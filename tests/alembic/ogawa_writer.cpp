#include "tests/alembic/ogawa_writer.h"

#include <stdexcept>

namespace kelsdk::alembic::test {
namespace {

template <typename T>
void Append(std::string& bytes, T value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

std::uint32_t InfoWord(const OgawaWriter::PropertySpec& property) {
  constexpr std::uint32_t kFourByteNumbers = 2 << 2;
  constexpr std::uint32_t kInlineMetadata = 0xffu << 20;
  auto info = static_cast<std::uint32_t>(property.kind) | kFourByteNumbers;
  if (!property.metadata.empty()) info |= kInlineMetadata;
  if (property.kind == 0) return info;
  info |= static_cast<std::uint32_t>(property.type) << 4 | property.extent << 12 | 0x100;
  return property.constant || property.sampleCount < 2 ? info | 0x800 : info;
}

}  // namespace

OgawaWriter::OgawaWriter(const std::string& path) : out_(path, std::ios::binary) {
  Put("Ogawa\xff\0\1\0\0\0\0\0\0\0\0", 16);
}

void OgawaWriter::Put(const void* bytes, std::size_t size) {
  out_.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
  position_ += size;
}

std::uint64_t OgawaWriter::Data(std::string_view bytes) {
  const std::uint64_t slot = position_ | kDataBit;
  const std::uint64_t count = bytes.size();
  Put(&count, sizeof count);
  Put(bytes.data(), bytes.size());
  return slot;
}

std::uint64_t OgawaWriter::Group(const std::vector<std::uint64_t>& slots) {
  const std::uint64_t slot = position_;
  const std::uint64_t count = slots.size();
  Put(&count, sizeof count);
  Put(slots.data(), slots.size() * sizeof slots[0]);
  return slot;
}

std::uint64_t OgawaWriter::Sample(const void* bytes, std::size_t size) {
  std::string keyed(16, '\0');
  keyed.append(static_cast<const char*>(bytes), size);
  return Data(keyed);
}

std::uint64_t OgawaWriter::ArraySamples(const std::vector<std::uint64_t>& samples) {
  std::vector<std::uint64_t> slots;
  for (const std::uint64_t sample : samples) slots.insert(slots.end(), {sample, kEmptyData});
  return Group(slots);
}

std::uint64_t OgawaWriter::Compound(const std::vector<PropertySpec>& properties) {
  std::string headers;
  std::vector<std::uint64_t> slots;
  for (const PropertySpec& property : properties) {
    Append(headers, InfoWord(property));
    if (property.kind != 0) {
      Append(headers, property.sampleCount);
      Append(headers, property.timeSampling);
    }
    Append(headers, static_cast<std::uint32_t>(property.name.size()));
    headers += property.name;
    if (!property.metadata.empty()) {
      Append(headers, static_cast<std::uint32_t>(property.metadata.size()));
      headers += property.metadata;
    }
    slots.push_back(property.slot);
  }
  slots.push_back(Data(headers));
  return Group(slots);
}

std::uint64_t OgawaWriter::Object(std::uint64_t properties,
                                  const std::vector<ObjectSpec>& children) {
  std::string headers;
  std::vector<std::uint64_t> slots = {properties};
  for (const ObjectSpec& child : children) {
    Append(headers, static_cast<std::uint32_t>(child.name.size()));
    headers += child.name;
    headers += '\xff';
    Append(headers, static_cast<std::uint32_t>(child.metadata.size()));
    headers += child.metadata;
    slots.push_back(child.slot);
  }
  headers.append(32, '\0');
  slots.push_back(Data(headers));
  return Group(slots);
}

void OgawaWriter::Finish(std::uint64_t topObject, std::vector<SamplingSpec> samplings) {
  samplings.insert(samplings.begin(), SamplingSpec());
  std::string times;
  for (const SamplingSpec& sampling : samplings) {
    Append(times, std::uint32_t{1});
    Append(times, sampling.period);
    Append(times, static_cast<std::uint32_t>(sampling.times.size()));
    for (const double time : sampling.times) Append(times, time);
  }
  const auto layout = Data(std::string(4, '\0'));
  const auto library = Data({"\x3c\x2a\0\0", 4});  // 10812
  const std::uint64_t root =
      Group({layout, library, topObject, kEmptyData, Data(times), kEmptyData});
  out_.seekp(8);
  out_.write(reinterpret_cast<const char*>(&root), sizeof root);
  out_.close();
  if (!out_) throw std::runtime_error("cannot write an archive");
}

}  // namespace kelsdk::alembic::test
