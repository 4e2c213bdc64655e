#pragma once

#include <string>

#include "tools/backend/checked_json.h"

namespace tarvel_backend {

// Reads a JSON file. Throws std::runtime_error, whose message begins with the path, when the file
// is no JSON, is nested too deeply, or has an object with two members of one name.
Json ReadJsonFile(const std::string& path);

}  // namespace tarvel_backend
