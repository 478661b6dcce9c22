#include "tools/transform.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

using Rows = Transform::Rows;

constexpr Rows kIdentity = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};

const std::map<std::string, Rows> kAxes = {
    {"y-up-to-z-up", {{{1, 0, 0}, {0, 0, -1}, {0, 1, 0}}}},
    {"z-up-to-y-up", {{{1, 0, 0}, {0, 0, 1}, {0, -1, 0}}}},
};

struct Unit {
  const char* name;
  double millimetres;
};
constexpr Unit kUnits[] = {{"mm", 1},   {"cm", 10},   {"dm", 100},   {"m", 1000},
                           {"km", 1e6}, {"in", 25.4}, {"ft", 304.8}, {"yd", 914.4}};

std::optional<double> MillimetresOf(const std::string& name) {
  const auto* const unit = std::ranges::find(kUnits, name, &Unit::name);
  return unit == std::end(kUnits) ? std::nullopt : std::optional(unit->millimetres);
}

Rows Product(const Rows& a, const Rows& b) {
  Rows product = {};
  for (std::size_t row = 0; row < 3; ++row) {
    for (std::size_t column = 0; column < 3; ++column) {
      for (std::size_t k = 0; k < 3; ++k) product[row][column] += a[row][k] * b[k][column];
    }
  }
  return product;
}

// Quarter turns are exact: no value moves to an axis that it has no part in.
double Sine(double degrees) {
  const double turned = std::remainder(degrees, 360);
  if (std::remainder(turned, 180) == 0) return 0;
  if (std::fabs(turned) == 90) return std::copysign(1, turned);
  return std::sin(turned * std::numbers::pi / 180);
}

// Counter-clockwise about an axis that points at the viewer.
Rows TurnAbout(std::size_t axis, double degrees) {
  const std::size_t next = (axis + 1) % 3;
  const std::size_t last = (axis + 2) % 3;
  const double sine = Sine(degrees);
  const double cosine = Sine(std::remainder(degrees, 360) + 90);
  Rows turn = kIdentity;
  turn[next][next] = cosine;
  turn[next][last] = -sine;
  turn[last][next] = sine;
  turn[last][last] = cosine;
  return turn;
}

unsigned int ComponentsOf(ERole role) {
  return role == ERole::eBoxes ? 6 : 3;
}

// The numbers that an archive's object is placed by.
bool HoldsOperations(const ChannelSummary& channel) {
  return channel.name.value_or("").ends_with("/.xform/.vals");
}

ToolError Untold(const CacheSummary& summary, const ChannelSummary& channel) {
  const std::string name = channel.name.value_or(std::to_string(channel.index));
  const std::string what =
      channel.type.value_or("") + (channel.interpretation.value_or("").empty()
                                       ? ", no interpretation"
                                       : ", interpretation \"" + *channel.interpretation + '"');
  const bool isVector = channel.components == 3 && !IsInteger(channel.value);
  return {eUsage, summary.file + ": channel " + name + " (" + what + ") may hold " +
                      (isVector ? "points, vectors or neither: give --points, --vectors, "
                                  "--normals or --leave "
                                : "what a transform should change and can not: give --leave or "
                                  "--drop ") +
                      name};
}

}  // namespace

bool TransformOptions::Moves() const {
  constexpr Vector kNone = {0, 0, 0};
  return scale != 1 || !units.empty() || !axis.empty() || rotate != kNone || translate != kNone;
}

std::vector<std::string> AxisWords() {
  std::vector<std::string> words;
  words.reserve(kAxes.size());
  for (const auto& [word, rows] : kAxes) words.push_back(word);
  return words;
}

std::optional<double> UnitsFactor(const std::string& word) {
  const std::size_t between = word.find("-to-");
  if (between == std::string::npos) return {};
  const auto from = MillimetresOf(word.substr(0, between));
  const auto to = MillimetresOf(word.substr(between + 4));
  if (!from || !to) return {};
  return *from / *to;
}

std::string UnitNames() {
  std::string names;
  for (const Unit& unit : kUnits) names += (names.empty() ? "" : ", ") + std::string(unit.name);
  return names;
}

Transform::Transform(const TransformOptions& options, const CacheSummary& summary)
    : translate_(options.translate) {
  turn_ = options.axis.empty() ? kIdentity : kAxes.at(options.axis);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    turn_ = Product(TurnAbout(axis, options.rotate[axis]), turn_);
  }
  const double factor = options.units.empty() ? 1 : UnitsFactor(options.units).value();
  matrix_ = turn_;
  for (Vector& row : matrix_) {
    for (double& value : row) value *= options.scale * factor;
  }
  const auto tell = [&](const std::vector<std::string>& words, ERole role) {
    for (const std::string& word : words) {
      const auto [told, isNew] = told_.try_emplace(summary.FindChannel(word).index, role);
      if (!isNew && told->second != role) {
        throw ToolError(eUsage, summary.file + ": channel " + word + " is named by two options");
      }
    }
  };
  tell(options.points, ERole::ePoints);
  tell(options.vectors, ERole::eVectors);
  tell(options.normals, ERole::eNormals);
  tell(options.leave, ERole::eNone);
}

ERole Transform::RoleOf(const CacheSummary& summary, const ChannelSummary& channel) const {
  const auto told = told_.find(channel.index);
  if (told != told_.end()) {
    const bool fits = !IsInteger(channel.value) && channel.components == ComponentsOf(told->second);
    if (fits || told->second == ERole::eNone) return told->second;
    throw ToolError(eUsage, summary.file + ": channel " +
                                channel.name.value_or(std::to_string(channel.index)) + " holds " +
                                channel.type.value_or("") + ", no points or vectors");
  }
  if (summary.pc2) return ERole::ePoints;
  // Vectors of two are in a plane of their own, such as that of a texture.
  if (channel.components == 2) return ERole::eNone;
  const auto role = RoleByInterpretation(channel);
  if (role == ERole::eNone) return ERole::eNone;
  if (IsInteger(channel.value)) {
    if (role && channel.components == ComponentsOf(*role)) throw Untold(summary, channel);
    return ERole::eNone;
  }
  if (channel.components == 1 && !role && !HoldsOperations(channel)) return ERole::eNone;
  if (!role || channel.components != ComponentsOf(*role)) throw Untold(summary, channel);
  return *role;
}

Vector Transform::TranslationFor(ERole role) const {
  return role == ERole::ePoints || role == ERole::eBoxes ? translate_ : Vector{0, 0, 0};
}

}  // namespace kelcache
