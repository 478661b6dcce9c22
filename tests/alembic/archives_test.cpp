// The archives of tests/data/abc, told in the terms of the files that say what is in them.
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <stdexcept>

#include "backends/alembic/channels.h"
#include "tests/support/fixture.h"

namespace kelsdk::alembic {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::Bytes;

constexpr const char* kKinds[] = {"compound", "scalar", "array"};
constexpr const char* kSamplings[] = {"uniform", "cyclic", "acyclic", "invalid"};

/// The values of a sample as the expected files have them.
struct Values {
  std::vector<json> shown;
  json sum;  ///< of strings their bytes
  std::vector<float> floats;
};

template <typename Number>
json Shown(Number value) {
  const auto wide = static_cast<double>(value);
  if (std::isfinite(wide)) return value;
  return std::isnan(wide) ? "nan" : wide < 0 ? "-inf" : "inf";
}

template <typename Stored, typename Meaning = std::identity>
Values Numbers(const Bytes& stored, Meaning meaning = {}) {
  Values values;
  double sum = 0;
  for (std::size_t at = 0; at < stored.size(); at += sizeof(Stored)) {
    Stored bits;
    std::memcpy(&bits, &stored[at], sizeof bits);
    const auto value = meaning(bits);
    values.shown.push_back(Shown(value));
    values.floats.push_back(static_cast<float>(value));
    sum += static_cast<double>(value);
  }
  values.sum = Shown(sum);
  return values;
}

template <typename Unit>
Values Strings(const Bytes& stored) {
  Values values;
  std::basic_string<Unit> all(stored.size() / sizeof(Unit), Unit());
  std::memcpy(all.data(), stored.data(), stored.size());
  std::size_t bytes = 0;
  std::size_t from = 0;
  for (std::size_t end; (end = all.find(Unit(), from)) != all.npos; from = end + 1) {
    const std::string text = fs::path(all.substr(from, end - from)).string();  // as UTF-8
    values.shown.emplace_back(text);
    bytes += text.size();
  }
  values.sum = bytes;
  return values;
}

Values Decode(EPlainType type, const Bytes& stored) {
  switch (type) {
    case EPlainType::eBool:
      return Numbers<std::uint8_t>(stored, [](auto value) { return int{value != 0}; });
    case EPlainType::eUint8: return Numbers<std::uint8_t>(stored);
    case EPlainType::eInt8: return Numbers<std::int8_t>(stored);
    case EPlainType::eUint16: return Numbers<std::uint16_t>(stored);
    case EPlainType::eInt16: return Numbers<std::int16_t>(stored);
    case EPlainType::eUint32: return Numbers<std::uint32_t>(stored);
    case EPlainType::eInt32: return Numbers<std::int32_t>(stored);
    case EPlainType::eUint64: return Numbers<std::uint64_t>(stored);
    case EPlainType::eInt64: return Numbers<std::int64_t>(stored);
    case EPlainType::eFloat16: return Numbers<std::uint16_t>(stored, HalfToFloat);
    case EPlainType::eFloat32: return Numbers<float>(stored);
    case EPlainType::eFloat64: return Numbers<double>(stored);
    case EPlainType::eString: return Strings<char>(stored);
    case EPlainType::eWstring: return Strings<char32_t>(stored);
  }
  return {};
}

void Require(bool done, const io::Error& error) {
  if (!done) throw std::runtime_error(error.text());
}

class Teller {
 public:
  explicit Teller(std::unique_ptr<Archive> archive) : channels_(std::move(archive)) {}

  json Tell() {
    json told = {{"libraryVersion", hierarchy_.libraryVersion}, {"archiveMeta", json::object()}};
    for (const TimeSampling& sampling : hierarchy_.timeSamplings) {
      json& entry = told["timeSamplings"].emplace_back();
      entry["index"] = told["timeSamplings"].size() - 1;
      entry["type"] = kSamplings[sampling.kind];
      entry["times"] = sampling.times;
      entry["maxSamples"] = sampling.maxSamples;
      if (sampling.kind != TimeSampling::eAcyclic) entry["period"] = sampling.period;
    }
    for (ObjectId id = 0; id < hierarchy_.objects.size(); ++id) {
      told["objects"].push_back(TellObject(id));
    }
    std::swap(told["archiveMeta"], told["objects"][0]["meta"]);
    EXPECT_EQ(hierarchy_.problemCount, 0u) << "taken for damaged";
    positions_.insert(positions_.end(), others_.begin(), others_.end());
    std::vector<std::uint32_t> all(channels_.Count());
    std::iota(all.begin(), all.end(), 0u);
    EXPECT_EQ(positions_, all) << "positions come first, all in their order";
    return told;
  }

 private:
  json TellObject(ObjectId id) {
    const Object& object = hierarchy_.objects[id];
    const std::string path = hierarchy_.ObjectPath(id);
    json told = {{"path", path}, {"children", object.childCount}, {"props", json::array()}};
    told["meta"] = Metadata(object.metadata);
    for (std::uint32_t i = 0; i < object.propertyCount; ++i) {
      told["props"].push_back(TellProperty(object.firstProperty + i, path.size() + (id != 0)));
    }
    return told;
  }

  json TellProperty(PropertyId id, std::size_t pathOffset) {
    const Property& property = hierarchy_.properties[id];
    const std::string path = hierarchy_.PropertyPath(id);
    json told = {{"path", path.substr(pathOffset)},
                 {"kind", kKinds[static_cast<int>(property.kind)]},
                 {"meta", Metadata(property.metadata)}};
    if (property.kind == EPropertyKind::eCompound) return told;
    const TimeSampling& sampling = hierarchy_.timeSamplings[property.timeSampling];
    const std::uint32_t count = property.sampleCount;
    told["pod"] = PlainTypeName(property.type) + std::string(IsNumeric(property.type) ? "_t" : "");
    told["extent"] = property.extent;
    told["numSamples"] = count;
    told["constant"] = property.IsConstant();
    told["timeSampling"] = property.timeSampling;
    told["tsType"] = kSamplings[sampling.kind];
    told["samples"] = json::array();
    if (property.kind == EPropertyKind::eArray) told["scalarLike"] = property.scalarLike;
    if (count == 0) return told;
    told["t0"] = sampling.TimeOf(0);
    told["t1"] = sampling.TimeOf(count - 1);
    std::uint32_t channel = 0;
    if (IsNumeric(property.type)) {
      EXPECT_TRUE(channels_.Find(path, channel)) << path;
      (path.ends_with("/.geom/P") ? positions_ : others_).push_back(channel);
    }
    for (std::uint32_t i = 0; i < count; ++i) {
      const json sample = TellSample(id, i, channel);
      // Of many samples the expected files show three.
      const bool shown = count <= 50 || i == 0 || i == count / 2 || i + 1 == count;
      if (shown) told["samples"].push_back(sample);
    }
    return told;
  }

  json TellSample(PropertyId id, std::uint32_t sample, std::uint32_t channel) {
    Archive& archive = channels_.archive();
    const Property& property = hierarchy_.properties[id];
    const std::uint64_t stored = property.StoredIndex(sample);
    io::Error error;
    std::uint64_t size = 0;
    Require(archive.ValueBytes(id, stored, size, error), error);
    Bytes bytes(size);
    Require(archive.ReadValues(id, stored, bytes.data(), size, size, error), error);
    const Values values = Decode(property.type, bytes);
    if (IsNumeric(property.type)) ExpectFloats(channel, sample, values.floats);
    const std::size_t count = values.shown.size();
    const auto few = static_cast<std::ptrdiff_t>(std::min<std::size_t>(count, 3));
    json told = {{"i", sample}, {IsNumeric(property.type) ? "sum" : "bytes", values.sum}};
    told["first"] = std::vector(values.shown.begin(), values.shown.begin() + few);
    told["last"] = std::vector(values.shown.end() - few, values.shown.end());
    if (property.kind != EPropertyKind::eArray) return told;
    told["n"] = count / property.extent;
    Dimensions dimensions;
    Require(archive.ReadDimensions(id, stored, dimensions, error), error);
    if (dimensions.rank > 1 && count > 0) {
      told["dims"] = std::vector(dimensions.sizes, dimensions.sizes + dimensions.rank);
    }
    return told;
  }

  // With room for one element more than the sample has.
  void ExpectFloats(std::uint32_t channel, std::uint32_t sample, std::vector<float> expected) {
    const std::uint8_t extent = channels_.PropertyOf(channel).extent;
    const auto count = static_cast<std::uint32_t>(expected.size() / extent);
    expected.resize(expected.size() + extent, std::nanf(""));
    io::Error error;
    std::uint32_t length = 0;
    Require(channels_.BufferLength(channel, length, error), error);
    EXPECT_GE(length, count);
    std::vector<float> floats(expected.size());
    const double seconds = channels_.SamplingOf(channel).TimeOf(sample);
    Require(channels_.Read(channel, seconds, floats.data(), count + 1, error), error);
    EXPECT_EQ(std::memcmp(floats.data(), expected.data(), floats.size() * sizeof(float)), 0)
        << channels_.Name(channel) << " at " << sample;
  }

  json Metadata(std::uint32_t index) const {
    json pairs = json::object();
    std::string_view rest = hierarchy_.metadata[index];
    for (std::string_view key, value; TakeMetadataPair(rest, key, value);) {
      pairs.emplace(std::string(key), std::string(value));
    }
    return pairs;
  }

  ChannelList channels_;
  const Hierarchy& hierarchy_ = channels_.archive().hierarchy();
  std::vector<std::uint32_t> positions_;
  std::vector<std::uint32_t> others_;
};

TEST(AlembicArchives, HoldWhatTheFormatsOwnLibraryReads) {
  unsigned int archives = 0;
  for (const auto& entry : fs::directory_iterator(test::TestData("abc"))) {
    if (entry.path().extension() != ".abc") continue;
    ++archives;
    SCOPED_TRACE(entry.path().filename());
    std::ifstream file(fs::path(entry.path()).replace_extension(".expected.json"));
    json expected = json::parse(file);
    io::Error error;
    auto archive = OpenArchive(entry.path().c_str(), error);
    if (expected["container"] != "ogawa") {
      EXPECT_TRUE(archive == nullptr && error.kind() == io::Error::eUnsupported);
      continue;
    }
    // What only says metadata, samplings or samples in another way.
    for (const char* key : {"container", "archiveStart", "archiveEnd"}) expected.erase(key);
    for (json& object : expected["objects"]) {
      for (const char* key : {"type", "instanceSource", "resolvedType", "resolvedChildren"}) {
        object.erase(key);
      }
      for (json& property : object["props"]) property.erase("interp");
    }
    Require(archive != nullptr, error);
    EXPECT_EQ(json::diff(expected, Teller(std::move(archive)).Tell()), json::array());
  }
  EXPECT_EQ(archives, 14u);
}

}  // namespace
}  // namespace kelsdk::alembic
