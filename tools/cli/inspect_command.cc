#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/process/clock.h"
#include "tools/cli/commands.h"
#include "tools/inspect/report.h"

namespace tarvel_cli {

int Inspect(const InspectOptions& options) {
  const auto directories = tarvel_inspect::ClientDirectories(options.directory);
  if (directories.empty()) {
    throw std::runtime_error("no client has left anything in " + options.directory);
  }
  std::vector<tarvel_inspect::Report> reports;
  reports.reserve(directories.size());
  for (const std::string& directory : directories) {
    reports.push_back(tarvel_inspect::Inspect(directory, options.log_dir, options.filter,
                                              zo_base::WallClockMilliseconds()));
  }
  if (options.json) {
    std::printf("%s\n", tarvel_inspect::ToJson(reports).dump(2).c_str());
    return kDone;
  }
  for (const auto& report : reports) std::fputs(tarvel_inspect::ToText(report).c_str(), stdout);
  return kDone;
}

}  // namespace tarvel_cli
