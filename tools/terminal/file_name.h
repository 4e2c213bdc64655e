#pragma once

#include <string>

namespace tarvel_terminal {

// Returns what is wrong with an argument that names a file. Returns an empty string for a good one.
inline std::string CheckFileName(const std::string& name) {
  return name.empty() ? "it is empty" : "";
}

}  // namespace tarvel_terminal
