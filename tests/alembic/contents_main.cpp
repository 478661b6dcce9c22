// alembic_contents FILE: prints, as JSON for expected.py, what the headers of an archive say, the
// stored bytes of its samples and the floats that its channels deliver, these as bytes too.
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "backends/alembic/channels.h"

namespace kelsdk::alembic::test {
namespace {

using nlohmann::json;

constexpr int kRefused = 2;
constexpr const char* kKinds[] = {"compound", "scalar", "array"};
constexpr const char* kSamplings[] = {"uniform", "cyclic", "acyclic", "invalid"};

void Require(bool done, const io::Error& error) {
  if (!done) throw std::runtime_error(error.text());
}

json SampleObject(ChannelList& channels, PropertyId id, std::uint32_t sample,
                  std::optional<std::uint32_t> channel) {
  Archive& archive = channels.archive();
  const Property& property = archive.hierarchy().properties[id];
  const std::uint64_t stored = property.StoredIndex(sample);
  io::Error error;
  std::uint64_t size = 0;
  Require(archive.ValueBytes(id, stored, size, error), error);
  std::vector<std::uint8_t> bytes(size);
  Require(archive.ReadValues(id, stored, bytes.data(), size, size, error), error);
  json object = {{"i", sample}, {"stored", bytes}};
  if (property.kind == EPropertyKind::eArray) {
    Dimensions dimensions;
    Require(archive.ReadDimensions(id, stored, dimensions, error), error);
    object["dims"] = std::vector(dimensions.sizes, dimensions.sizes + dimensions.rank);
  }
  if (!channel) return object;
  // With room for one element more than the sample has.
  const auto count = static_cast<std::uint32_t>(size / property.ElementSize() + 1);
  bytes.resize(count * property.extent * sizeof(float));
  auto* floats = reinterpret_cast<float*>(bytes.data());
  const double seconds = channels.SamplingOf(*channel).TimeOf(sample);
  Require(channels.Read(*channel, seconds, floats, count, error), error);
  object["floats"] = bytes;
  return object;
}

json PropertyObject(ChannelList& channels, PropertyId id) {
  const Hierarchy& hierarchy = channels.archive().hierarchy();
  const Property& property = hierarchy.properties[id];
  const std::string path = hierarchy.PropertyPath(id);
  json object = {{"path", path},
                 {"kind", kKinds[static_cast<int>(property.kind)]},
                 {"meta", hierarchy.metadata[property.metadata]}};
  if (property.kind == EPropertyKind::eCompound) return object;
  const TimeSampling& sampling = hierarchy.timeSamplings[property.timeSampling];
  const std::uint32_t count = property.sampleCount;
  object["pod"] = PlainTypeName(property.type);
  object["extent"] = property.extent;
  object["numSamples"] = count;
  object["constant"] = property.IsConstant();
  object["timeSampling"] = property.timeSampling;
  object["tsType"] = kSamplings[sampling.kind];
  object["samples"] = json::array();
  if (property.kind == EPropertyKind::eArray) object["scalarLike"] = property.scalarLike;
  if (count == 0) return object;
  object["t0"] = sampling.TimeOf(0);
  object["t1"] = sampling.TimeOf(count - 1);

  std::optional<std::uint32_t> channel(0);
  io::Error error;
  std::uint32_t length = 0;
  if (channels.Find(path, *channel)) {
    Require(channels.BufferLength(*channel, length, error), error);
    object["channel"] = *channel;
    object["bufferLength"] = length;
  } else {
    channel.reset();
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    object["samples"].push_back(SampleObject(channels, id, i, channel));
  }
  return object;
}

json Contents(ChannelList& channels) {
  const Hierarchy& hierarchy = channels.archive().hierarchy();
  json contents = {{"libraryVersion", hierarchy.libraryVersion},
                   {"problems", hierarchy.problemCount},
                   {"channels", channels.Count()}};
  for (const TimeSampling& sampling : hierarchy.timeSamplings) {
    contents["timeSamplings"].push_back({{"index", contents["timeSamplings"].size()},
                                         {"type", kSamplings[sampling.kind]},
                                         {"times", sampling.times},
                                         {"period", sampling.period},
                                         {"maxSamples", sampling.maxSamples}});
  }
  for (ObjectId id = 0; id < hierarchy.objects.size(); ++id) {
    const Object& entry = hierarchy.objects[id];
    json object = {{"path", hierarchy.ObjectPath(id)},
                   {"meta", hierarchy.metadata[entry.metadata]},
                   {"children", entry.childCount},
                   {"props", json::array()}};
    for (std::uint32_t i = 0; i < entry.propertyCount; ++i) {
      object["props"].push_back(PropertyObject(channels, entry.firstProperty + i));
    }
    contents["objects"].push_back(object);
  }
  return contents;
}

int Print(const char* path) {
  io::Error error;
  auto archive = OpenArchive(path, error);
  if (archive == nullptr && error.kind() == io::Error::eUnsupported) return kRefused;
  Require(archive != nullptr, error);
  ChannelList channels(std::move(archive));
  std::printf("%s\n", Contents(channels).dump().c_str());
  return 0;
}

}  // namespace
}  // namespace kelsdk::alembic::test

int main(int argc, char** argv) {
  try {
    return argc == 2 ? kelsdk::alembic::test::Print(argv[1]) : 1;
  } catch (const std::exception& exception) {
    std::printf("%s\n", exception.what());
    return 1;
  }
}
