#include "tools/cli/command_name.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>
#include <vector>

#include "base/text/strings.h"
#include "tools/cli/client_options.h"

namespace tarvel_cli {
namespace {

// How many letters have to be changed, added or left out.
std::size_t EditDistance(const std::string& from, const std::string& to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

// The command with the fewest differing letters. The user may have mistyped it.
std::string NearestCommand(const CLI::App& app, const std::string& typed) {
  std::string nearest;
  std::size_t least = typed.size();
  for (const CLI::App* const command : app.get_subcommands({})) {
    const std::string& name = command->get_name();
    const std::size_t distance = EditDistance(typed, name);
    if (distance >= least) continue;
    least = distance;
    nearest = name;
  }
  return nearest;
}

}  // namespace

void CheckCommand(const CLI::App& app, const std::string& typed) {
  if (typed.empty() || typed.front() == '-') return;
  const auto commands = app.get_subcommands({});
  const bool is_known = std::any_of(commands.begin(), commands.end(), [&](const CLI::App* command) {
    return command->get_name() == typed;
  });
  if (is_known) return;
  const std::string nearest = NearestCommand(app, typed);
  throw UsageError("there is no command \"" + zo_base::Printable(typed, 64) + '"' +
                   (nearest.empty() ? "; see --help" : "; did you mean \"" + nearest + "\"?"));
}

}  // namespace tarvel_cli
