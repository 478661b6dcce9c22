#include <algorithm>
#include <cstdio>
#include <string_view>

#include "backends/alembic/report.h"

namespace kelsdk::alembic {
namespace {

// From here on a line says its level instead: in an archive of many thousand levels indentation
// alone would outgrow the file without bound.
constexpr std::size_t kMostIndents = 40;

std::string Indent(std::size_t level) {
  std::string indent(2 * std::min(level, kMostIndents), ' ');
  if (level > kMostIndents) indent.append("(level ").append(std::to_string(level)).append(") ");
  return indent;
}

// Names come from the file; a line break in one must not make two lines.
std::string Printable(std::string_view text) {
  std::string printable;
  for (const char character : text) {
    const auto code = static_cast<unsigned char>(character);
    if (code >= 0x20 && code != 0x7f) {
      printable += character;
      continue;
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\x%02x", code);
    printable += escape;
  }
  return printable;
}

void AppendMetadata(const std::string& metadata, std::string_view key, std::string& line) {
  const std::string_view value = MetadataValue(metadata, key);
  if (!value.empty()) line.append("  ").append(Printable(value));
}

std::string ObjectLine(const Hierarchy& hierarchy, const Object& object) {
  const std::string& metadata = hierarchy.metadata[object.metadata];
  std::string line = object.parent == kNone ? "/" : Printable(hierarchy.Name(object.name));
  AppendMetadata(metadata, "schema", line);
  if (MetadataValue(metadata, "isInstance") == "1") line += "  instance";
  return line;
}

std::string PropertyLine(const Hierarchy& hierarchy, const Property& property) {
  const std::string& metadata = hierarchy.metadata[property.metadata];
  std::string line = Printable(hierarchy.Name(property.name));
  if (property.kind == EPropertyKind::eCompound) {
    AppendMetadata(metadata, "schema", line);
    return line;
  }
  line += property.kind == EPropertyKind::eArray ? "  array " : "  scalar ";
  line += TypeText(property);
  AppendMetadata(metadata, "interpretation", line);
  line.append("  ").append(std::to_string(property.sampleCount));
  line += property.sampleCount == 1 ? " sample" : " samples";
  if (property.sampleCount > 1 && property.IsConstant()) line += ", constant";
  if (property.sampleCount > 1)
    line.append(", ").append(SamplingText(hierarchy.timeSamplings[property.timeSampling]));
  return line;
}

void ListProperties(const Hierarchy& hierarchy, const Object& object, const io::Report& report) {
  std::vector<PropertyId> holders;
  for (PropertyId i = 0; i < object.propertyCount; ++i) {
    const PropertyId id = object.firstProperty + i;
    const Property& property = hierarchy.properties[id];
    while (!holders.empty() && holders.back() != property.parent) holders.pop_back();
    const std::size_t level = object.depth + 1 + holders.size();
    report.Say("%s", (Indent(level) + PropertyLine(hierarchy, property)).c_str());
    if (property.kind == EPropertyKind::eCompound) holders.push_back(id);
  }
}

}  // namespace

std::string TypeText(const Property& property) {
  std::string text = PlainTypeName(property.type);
  if (property.extent != 1) text.append("[").append(std::to_string(property.extent)).append("]");
  return text;
}

std::string SamplingText(const TimeSampling& sampling) {
  char text[128];
  const double start = sampling.times.empty() ? 0.0 : sampling.times[0];
  switch (sampling.kind) {
    case TimeSampling::eUniform:
      std::snprintf(text, sizeof text, "%.6g fps from %.6g s", 1 / sampling.period, start);
      break;
    case TimeSampling::eCyclic:
      std::snprintf(text, sizeof text, "%zu times every %.6g s from %.6g s", sampling.times.size(),
                    sampling.period, start);
      break;
    case TimeSampling::eAcyclic:
      std::snprintf(text, sizeof text, "%zu times of its own from %.6g s", sampling.times.size(),
                    start);
      break;
    case TimeSampling::eInvalid: return "damaged times";
  }
  return text;
}

void ListTree(const Hierarchy& hierarchy, const io::Report& report) {
  for (const Object& object : hierarchy.objects) {
    report.Say("%s", (Indent(object.depth) + ObjectLine(hierarchy, object)).c_str());
    ListProperties(hierarchy, object, report);
  }
  for (const std::string& problem : hierarchy.problems)
    report.Say("%s", ("damaged: " + Printable(problem)).c_str());
}

}  // namespace kelsdk::alembic
