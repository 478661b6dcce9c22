#include "tests/alembic/describe.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>

#include "backends/alembic/samples.h"
#include "backends/io/endian.h"

namespace kelsdk::alembic::test {
namespace {

using nlohmann::json;

json Number(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  return value;
}

template <typename T>
json Load(const std::uint8_t* bytes) {
  return io::LoadLittle<T>(bytes);
}

json StoredNumber(EPlainType type, const std::uint8_t* at) {
  switch (type) {
    case EPlainType::eBool: return *at != 0 ? 1 : 0;
    case EPlainType::eUint8: return Load<std::uint8_t>(at);
    case EPlainType::eInt8: return Load<std::int8_t>(at);
    case EPlainType::eUint16: return Load<std::uint16_t>(at);
    case EPlainType::eInt16: return Load<std::int16_t>(at);
    case EPlainType::eUint32: return Load<std::uint32_t>(at);
    case EPlainType::eInt32: return Load<std::int32_t>(at);
    case EPlainType::eUint64: return Load<std::uint64_t>(at);
    case EPlainType::eInt64: return Load<std::int64_t>(at);
    case EPlainType::eFloat16:
      return Number(double{HalfToFloat(io::LoadLittle<std::uint16_t>(at))});
    case EPlainType::eFloat32: return Number(double{io::LoadLittle<float>(at)});
    default: return Number(io::LoadLittle<double>(at));
  }
}

void AppendUtf8(std::string& text, std::uint32_t code) {
  const auto put = [&](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (code < 0x80) return put(code);
  if (code < 0x800) {
    put(0xc0 | code >> 6);
  } else if (code < 0x10000) {
    put(0xe0 | code >> 12);
    put(0x80 | (code >> 6 & 0x3f));
  } else {
    put(0xf0 | code >> 18);
    put(0x80 | (code >> 12 & 0x3f));
    put(0x80 | (code >> 6 & 0x3f));
  }
  put(0x80 | (code & 0x3f));
}

json Strings(EPlainType type, const std::vector<std::uint8_t>& bytes) {
  json strings = json::array();
  std::string text;
  const std::size_t unit = PlainTypeSize(type);
  for (std::size_t at = 0; at < bytes.size(); at += unit) {
    const std::uint32_t code =
        unit == 1 ? bytes[at] : io::LoadLittle<std::uint32_t>(bytes.data() + at);
    if (code != 0 && unit == 1) text += static_cast<char>(code);
    if (code != 0 && unit != 1) AppendUtf8(text, code);
    if (code == 0) strings.push_back(std::exchange(text, {}));
  }
  return strings;
}

void Require(bool done, const io::Error& error) {
  if (!done) throw std::runtime_error(error.text());
}

json MetadataObject(const std::string& metadata) {
  json object = json::object();
  std::string_view rest = metadata;
  std::string_view key;
  std::string_view value;
  while (TakeMetadataPair(rest, key, value)) {
    if (!object.contains(key)) object[std::string(key)] = std::string(value);
  }
  return object;
}

const char* KindName(TimeSampling::EKind kind) {
  switch (kind) {
    case TimeSampling::eUniform: return "uniform";
    case TimeSampling::eCyclic: return "cyclic";
    case TimeSampling::eAcyclic: return "acyclic";
    case TimeSampling::eInvalid: break;
  }
  return "invalid";
}

json SamplingObject(const TimeSampling& sampling, std::size_t index) {
  json object = {{"index", index},
                 {"type", KindName(sampling.kind)},
                 {"times", sampling.times},
                 {"maxSamples", sampling.maxSamples}};
  if (sampling.kind != TimeSampling::eAcyclic) object["period"] = sampling.period;
  return object;
}

json SampleObject(Archive& archive, PropertyId id, std::uint32_t sample) {
  const Property& property = archive.hierarchy().properties[id];
  const json values = SampleValues(archive, id, sample);
  json object = {{"i", sample}};
  if (property.kind == EPropertyKind::eArray) {
    io::Error error;
    Dimensions dimensions;
    Require(archive.ReadDimensions(id, property.StoredIndex(sample), dimensions, error), error);
    object["n"] = values.size() / property.extent;
    if (dimensions.rank > 1 && !values.empty()) {
      object["dims"] =
          std::vector<std::uint64_t>(dimensions.sizes, dimensions.sizes + dimensions.rank);
    }
  }
  const auto shown = static_cast<json::difference_type>(std::min<std::size_t>(3, values.size()));
  object["first"] = json(json::array_t(values.begin(), values.begin() + shown));
  object["last"] = json(json::array_t(values.end() - shown, values.end()));
  if (IsNumeric(property.type)) {
    double sum = 0;
    for (const json& value : values) {
      if (value == "nan")
        sum += std::numeric_limits<double>::quiet_NaN();
      else if (value.is_string())
        sum += value == "inf" ? HUGE_VAL : -HUGE_VAL;
      else
        sum += value.get<double>();
    }
    object["sum"] = Number(sum);
  } else {
    std::size_t bytes = 0;
    for (const json& value : values) bytes += value.get_ref<const std::string&>().size();
    object["bytes"] = bytes;
  }
  return object;
}

json SampleObjects(Archive& archive, PropertyId id) {
  const std::uint32_t count = archive.hierarchy().properties[id].sampleCount;
  json samples = json::array();
  if (count > 50) {
    for (const std::uint32_t sample : {0u, count / 2, count - 1}) {
      samples.push_back(SampleObject(archive, id, sample));
    }
  } else {
    for (std::uint32_t i = 0; i < count; ++i) samples.push_back(SampleObject(archive, id, i));
  }
  return samples;
}

json PropertyObject(Archive& archive, const std::string& objectPath, PropertyId id) {
  const Hierarchy& hierarchy = archive.hierarchy();
  const Property& property = hierarchy.properties[id];
  const std::string path = hierarchy.PropertyPath(id);
  const json metadata = MetadataObject(hierarchy.metadata[property.metadata]);
  json object = {{"path", path.substr(objectPath == "/" ? 1 : objectPath.size() + 1)},
                 {"kind", "compound"},
                 {"meta", metadata}};
  if (property.kind == EPropertyKind::eCompound) return object;
  const bool array = property.kind == EPropertyKind::eArray;
  const TimeSampling& sampling = hierarchy.timeSamplings[property.timeSampling];
  std::string type = PlainTypeName(property.type);
  if (IsNumeric(property.type)) type += "_t";
  object["kind"] = array ? "array" : "scalar";
  object["pod"] = type;
  object["extent"] = property.extent;
  object["interp"] = metadata.value("interpretation", "");
  object["numSamples"] = property.sampleCount;
  object["constant"] = property.IsConstant();
  if (array) object["scalarLike"] = property.scalarLike;
  object["timeSampling"] = property.timeSampling;
  object["tsType"] = KindName(sampling.kind);
  if (property.sampleCount != 0) {
    object["t0"] = sampling.TimeOf(0);
    object["t1"] = sampling.TimeOf(property.sampleCount - 1);
  }
  object["samples"] = SampleObjects(archive, id);
  return object;
}

std::optional<ObjectId> FindObject(const Hierarchy& hierarchy, const std::string& path) {
  for (ObjectId id = 0; id < hierarchy.objects.size(); ++id) {
    if (hierarchy.ObjectPathIs(id, path)) return id;
  }
  return std::nullopt;
}

void AddInstance(Archive& archive, ObjectId id, json& object) {
  const Hierarchy& hierarchy = archive.hierarchy();
  const json source = SampleValues(archive, hierarchy.objects[id].firstProperty, 0).at(0);
  object["instanceSource"] = source;
  const auto resolved = FindObject(hierarchy, source);
  if (!resolved) return;
  const Object& shown = hierarchy.objects[*resolved];
  object["resolvedType"] = MetadataValue(hierarchy.metadata[shown.metadata], "schema");
  object["resolvedChildren"] = shown.childCount;
}

json ObjectObject(Archive& archive, ObjectId id) {
  const Hierarchy& hierarchy = archive.hierarchy();
  const Object& entry = hierarchy.objects[id];
  const std::string path = hierarchy.ObjectPath(id);
  const json metadata =
      id == 0 ? json::object() : MetadataObject(hierarchy.metadata[entry.metadata]);
  json object = {{"path", path},
                 {"type", metadata.value("schema", "")},
                 {"meta", metadata},
                 {"children", entry.childCount},
                 {"props", json::array()}};
  for (std::uint32_t i = 0; i < entry.propertyCount; ++i) {
    object["props"].push_back(PropertyObject(archive, path, entry.firstProperty + i));
  }
  if (metadata.value("isInstance", "") == "1") AddInstance(archive, id, object);
  return object;
}

// The archive's time range as the format's own library gives it: of the samplings but the first
// with more than one sample, else of those with one, else of the first.
void AddRange(const Hierarchy& hierarchy, json& object) {
  std::optional<std::pair<double, double>> range;
  const auto join = [&](const TimeSampling& sampling) {
    const double start = sampling.TimeOf(0);
    const double end = sampling.TimeOf(sampling.maxSamples - 1);
    range = range ? std::pair(std::min(range->first, start), std::max(range->second, end))
                  : std::pair(start, end);
  };
  const auto& samplings = hierarchy.timeSamplings;
  for (std::size_t i = 1; i < samplings.size(); ++i) {
    if (samplings[i].maxSamples > 1) join(samplings[i]);
  }
  for (std::size_t i = 1; i < samplings.size() && !range; ++i) {
    if (samplings[i].maxSamples != 1) continue;
    for (; i < samplings.size(); ++i) {
      if (samplings[i].maxSamples == 1) join(samplings[i]);
    }
  }
  if (!range && samplings[0].maxSamples > 0) join(samplings[0]);
  object["archiveStart"] = range ? json(range->first) : json();
  object["archiveEnd"] = range ? json(range->second) : json();
}

}  // namespace

json SampleValues(Archive& archive, PropertyId id, std::uint32_t sample) {
  const Property& property = archive.hierarchy().properties[id];
  const std::uint64_t stored = property.StoredIndex(sample);
  io::Error error;
  std::uint64_t size = 0;
  Require(archive.ValueBytes(id, stored, size, error), error);
  std::vector<std::uint8_t> bytes(size);
  Require(archive.ReadValues(id, stored, bytes.data(), size, size, error), error);
  if (!IsNumeric(property.type)) return Strings(property.type, bytes);
  json values = json::array();
  const std::size_t unit = PlainTypeSize(property.type);
  for (std::size_t at = 0; at < bytes.size(); at += unit) {
    values.push_back(StoredNumber(property.type, bytes.data() + at));
  }
  return values;
}

json Describe(Archive& archive) {
  const Hierarchy& hierarchy = archive.hierarchy();
  const std::string& metadata = hierarchy.metadata[hierarchy.objects[0].metadata];
  json object = {{"container", "ogawa"},
                 {"libraryVersion", hierarchy.libraryVersion},
                 {"archiveMeta", MetadataObject(metadata)},
                 {"timeSamplings", json::array()},
                 {"objects", json::array()}};
  AddRange(hierarchy, object);
  for (std::size_t i = 0; i < hierarchy.timeSamplings.size(); ++i) {
    object["timeSamplings"].push_back(SamplingObject(hierarchy.timeSamplings[i], i));
  }
  for (ObjectId id = 0; id < hierarchy.objects.size(); ++id) {
    object["objects"].push_back(ObjectObject(archive, id));
  }
  return object;
}

}  // namespace kelsdk::alembic::test
