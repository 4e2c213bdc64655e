#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace tarvel_terminal {

// Returns the JSON of `value`, on one line unless `indent` is given. What a server or a file has
// brought may be no UTF-8: such bytes are replaced, where dump() alone would throw.
inline std::string JsonText(const nlohmann::ordered_json& value, int indent = -1) {
  return value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace tarvel_terminal
