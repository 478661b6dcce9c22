#pragma once

#include <nlohmann/json.hpp>
#include <optional>

namespace kelcache {

using Json = nlohmann::ordered_json;

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

}  // namespace kelcache
