// alembic_expected FOLDER: compares every NAME.abc of a folder with NAME.expected.json, and the
// sample choices with time_lookup.expected.json; the result is 0 when all agree.
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>

#include "backends/alembic/channels.h"
#include "tests/alembic/describe.h"

namespace kelsdk::alembic::test {
namespace {

using nlohmann::json;

struct Tally {
  std::size_t files = 0;
  std::size_t objects = 0;
  std::size_t properties = 0;
  std::size_t samples = 0;
  std::size_t channels = 0;
  std::size_t lookups = 0;
  std::size_t differences = 0;

  void Differ(const std::string& where, const std::string& what) {
    if (++differences <= 50) std::printf("%s: %s\n", where.c_str(), what.c_str());
  }
};

json Load(const std::filesystem::path& path) {
  std::ifstream in(path);
  return json::parse(in);
}

float AsFloat(const json& value) {
  if (value == "nan") return std::numeric_limits<float>::quiet_NaN();
  if (value.is_string()) return value == "inf" ? HUGE_VALF : -HUGE_VALF;
  // Straight to float: by way of double a 64-bit integer would be rounded twice.
  if (value.is_number_unsigned()) return static_cast<float>(value.get<std::uint64_t>());
  if (value.is_number_integer()) return static_cast<float>(value.get<std::int64_t>());
  const double number = value.get<double>();
  if (std::fabs(number) > double{std::numeric_limits<float>::max()})
    return number > 0 ? HUGE_VALF : -HUGE_VALF;
  return static_cast<float>(number);
}

bool SameFloat(float a, float b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

// One sample as the channel delivers it, with room for one element more than the sample has.
bool SampleAgrees(ChannelList& channels, std::uint32_t channel, std::uint32_t sample) {
  const Property& property = channels.PropertyOf(channel);
  const PropertyId id =
      static_cast<PropertyId>(&property - channels.archive().hierarchy().properties.data());
  const json values = SampleValues(channels.archive(), id, sample);
  const auto count = static_cast<std::uint32_t>(values.size() / property.extent + 1);
  std::vector<float> floats(std::size_t{count} * property.extent);
  io::Error error;
  const double seconds = channels.SamplingOf(channel).TimeOf(sample);
  if (!channels.Read(channel, seconds, floats.data(), count, error)) return false;
  for (std::size_t i = 0; i < floats.size(); ++i) {
    const float expected = i < values.size() ? AsFloat(values[i]) : std::nanf("");
    if (!SameFloat(floats[i], expected)) return false;
  }
  return true;
}

void CompareChannel(ChannelList& channels, const std::string& where, const std::string& path,
                    const json& property, Tally& tally) {
  std::uint32_t channel = 0;
  if (!channels.Find(path, channel)) return tally.Differ(where, path + " is no channel");
  ++tally.channels;
  std::size_t largest = property["kind"] == "scalar" ? 1 : 0;
  for (const json& sample : property["samples"]) {
    largest = std::max(largest, sample.value("n", std::size_t{1}));
    if (!SampleAgrees(channels, channel, sample["i"]))
      tally.Differ(where, path + " differs as floats at " + sample["i"].dump());
  }
  io::Error error;
  std::uint32_t length = 0;
  if (!channels.BufferLength(channel, length, error) || length < largest)
    tally.Differ(where, path + " has buffer length " + std::to_string(length));
}

void CompareChannels(ChannelList& channels, const std::string& where, const json& expected,
                     Tally& tally) {
  std::size_t wanted = 0;
  for (const json& object : expected["objects"]) {
    const std::string objectPath = object["path"];
    const std::string prefix = objectPath == "/" ? "/" : objectPath + "/";
    for (const json& property : object["props"]) {
      ++tally.properties;
      if (property["kind"] == "compound") continue;
      tally.samples += property["samples"].size();
      const std::string type = property["pod"];
      if (type.ends_with("string") || property["numSamples"] == 0) continue;
      ++wanted;
      CompareChannel(channels, where, prefix + property["path"].get<std::string>(), property,
                     tally);
    }
  }
  if (channels.Count() != wanted)
    tally.Differ(where,
                 std::to_string(channels.Count()) + " channels, not " + std::to_string(wanted));
}

void CompareArchive(const std::filesystem::path& path, Tally& tally) {
  const std::string where = path.filename().string();
  const json expected = Load(std::filesystem::path(path).replace_extension(".expected.json"));
  ++tally.files;
  io::Error error;
  auto archive = OpenArchive(path.c_str(), error);
  if (expected["container"] != "ogawa") {
    const bool refused = archive == nullptr && error.kind() == io::Error::eUnsupported;
    if (!refused) tally.Differ(where, "is not refused as a container that is not served");
    return;
  }
  if (archive == nullptr) return tally.Differ(where, error.text());
  tally.objects += archive->hierarchy().objects.size();
  for (const json& change : json::diff(expected, Describe(*archive))) {
    tally.Differ(where, change.dump());
  }
  if (archive->hierarchy().problemCount != 0) tally.Differ(where, "is taken for damaged");
  ChannelList channels(std::move(archive));
  CompareChannels(channels, where, expected, tally);
}

void CompareLookups(const std::filesystem::path& path, Tally& tally) {
  for (const json& entry : Load(path)) {
    const double period = entry["type"] == "acyclic" ? std::numeric_limits<double>::max() / 32.0
                                                     : entry["period"].get<double>();
    const auto sampling = TimeSampling::FromStored(period, entry["times"], 0);
    const std::uint32_t count = entry["numSamples"];
    for (const json& query : entry["queries"]) {
      ++tally.lookups;
      const std::uint32_t sample = count > 0 ? sampling.FloorSample(query[0], count) : 0;
      if (sample != query[1]) {
        tally.Differ(path.filename().string(), entry["type"].get<std::string>() + " " +
                                                   query.dump() + " gives " +
                                                   std::to_string(sample));
      }
    }
  }
}

int Compare(const std::filesystem::path& folder) {
  Tally tally;
  std::set<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == ".abc") paths.insert(entry.path());
  }
  for (const auto& path : paths) CompareArchive(path, tally);
  const auto lookups = folder / "time_lookup.expected.json";
  if (std::filesystem::exists(lookups)) CompareLookups(lookups, tally);
  std::printf(
      "%zu archives, %zu objects, %zu properties, %zu samples, %zu channels, "
      "%zu time lookups: %zu differences\n",
      tally.files, tally.objects, tally.properties, tally.samples, tally.channels, tally.lookups,
      tally.differences);
  return tally.differences == 0 && tally.files > 0 ? 0 : 1;
}

}  // namespace
}  // namespace kelsdk::alembic::test

int main(int argc, char** argv) {
  if (argc != 2) {
    std::puts("usage: alembic_expected FOLDER");
    return 2;
  }
  try {
    return kelsdk::alembic::test::Compare(argv[1]);
  } catch (const std::exception& exception) {
    std::printf("%s\n", exception.what());
    return 1;
  }
}
