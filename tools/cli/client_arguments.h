#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "tools/cli/client_options.h"

namespace tarvel_cli {

// These add arguments to a command. The variables that take their values outlive the parsing.

// Those of all commands that start an environment.
void AddCommonOptions(CLI::App& command, ClientOptions& options);
// Those of all commands that start a client.
void AddLBSOptions(CLI::App& command, ClientOptions& options);

// A list that may be repeated. Each occurrence takes one value, so that the next argument can be a
// positional one.
CLI::Option* AddList(CLI::App& command, const std::string& name, std::vector<std::string>& values,
                     const std::string& text);
void AddSeconds(CLI::App& command, const std::string& name, double& seconds,
                const std::string& text);

}  // namespace tarvel_cli
