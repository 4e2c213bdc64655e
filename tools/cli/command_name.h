#pragma once

#include <string>

namespace CLI {
class App;
}

namespace tarvel_cli {

// Throws UsageError, which proposes the nearest command, for a first argument that is neither an
// option nor a command.
void CheckCommand(const CLI::App& app, const std::string& typed);

}  // namespace tarvel_cli
