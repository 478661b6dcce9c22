#pragma once

#include <nlohmann/json.hpp>

#include "backends/alembic/archive.h"
#include "backends/alembic/channels.h"

namespace kelsdk::alembic::test {

/// All that an archive holds, in the shape of the NAME.expected.json files
/// (tests/data/abc/README.md tells it). Throws std::runtime_error for a sample that cannot be read.
nlohmann::json Describe(Archive& archive);

/// Values of a property's sample as they are stored, one JSON number or string each.
nlohmann::json SampleValues(Archive& archive, PropertyId property, std::uint32_t sample);

}  // namespace kelsdk::alembic::test
