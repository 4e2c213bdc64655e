#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/inspect/caches.h"
#include "tools/inspect/lives.h"
#include "tools/inspect/verdict.h"

namespace tarvel_inspect {

// All that a client's directory tells. A plain value.
struct Report {
  std::string directory;
  std::int64_t inspected_at = 0;  // Milliseconds since 1970.
  std::int64_t log_bytes = -1;    // -1 without a file; companion_bytes too.
  std::int64_t companion_bytes = -1;
  std::vector<std::string> problems;  // Sentences about what could not be read.
  Caches caches;
  std::vector<Life> lives;         // In the order of their begin.
  std::optional<Verdict> verdict;  // About the last life.
};

// What to leave out of the lives. The verdict is about all that the last one did.
struct Filter {
  std::optional<std::int64_t> since;    // Requests that began earlier, milliseconds since 1970.
  std::optional<std::size_t> last;      // All but so many requests.
  std::optional<std::int32_t> process;  // Lives of other processes.
};

// Returns the directories of clients in `directory`: itself, or those of its businesses. Throws a
// std::system_error when a directory can't be read.
std::vector<std::string> ClientDirectories(const std::string& directory);

// Reads a client's directory. `log_directory` is empty unless the client was given one, or where
// the log was copied to. Changes nothing and waits for nobody.
Report Inspect(const std::string& client_directory, const std::string& log_directory,
               const Filter& filter, std::int64_t now);

// For people, with a line end behind each line.
std::string ToText(const Verdict& verdict);
std::string ToText(const Report& report);

// The report for programs; docs/inspect.md has its form.
nlohmann::ordered_json ToJson(const std::vector<Report>& reports);

}  // namespace tarvel_inspect
