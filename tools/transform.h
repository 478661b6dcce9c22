#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/channel_kind.h"

namespace kelcache {

using Vector = std::array<double, 3>;

struct TransformOptions {
  double scale = 1;
  std::string units;  ///< "cm-to-m"; "": as they are
  std::string axis;   ///< "y-up-to-z-up" or "z-up-to-y-up"; "": as it is
  Vector rotate = {0, 0, 0};
  Vector translate = {0, 0, 0};
  std::vector<std::string> points;  ///< names or numbers of channels, as are those below
  std::vector<std::string> vectors;
  std::vector<std::string> normals;
  std::vector<std::string> leave;

  bool Moves() const;
  bool NamesAny() const {
    return !(points.empty() && vectors.empty() && normals.empty() && leave.empty());
  }
};

/// The words of --axis.
std::vector<std::string> AxisWords();

/// What a word of --units multiplies lengths by; empty for one that is none.
std::optional<double> UnitsFactor(const std::string& word);
/// "mm, cm, ..."
std::string UnitNames();

/// Scale, axis, rotation, translation, in this order, on the channels of one cache.
class Transform {
 public:
  /// Throws eUsage for channels that are not there, or that two options name.
  Transform(const TransformOptions& options, const CacheSummary& summary);

  /// By what the options say of the channel, else by its interpretation. Throws eUsage for one of
  /// which neither tells.
  ERole RoleOf(const CacheSummary& summary, const ChannelSummary& channel) const;

  using Rows = std::array<Vector, 3>;
  /// What elements of a role are multiplied by, and what is then added.
  const Rows& MatrixFor(ERole role) const { return role == ERole::eNormals ? turn_ : matrix_; }
  Vector TranslationFor(ERole role) const;

 private:
  Rows turn_;    // without lengths
  Rows matrix_;  // with them
  Vector translate_;
  std::map<int, ERole> told_;  // by channel
};

}  // namespace kelcache
