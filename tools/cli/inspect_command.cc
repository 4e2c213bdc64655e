#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "base/file/whole_file.h"
#include "base/process/clock.h"
#include "tools/cli/commands.h"
#include "tools/inspect/log_files.h"
#include "tools/inspect/page.h"
#include "tools/inspect/report.h"
#include "tools/terminal/json_text.h"
#include "tools/terminal/messages.h"
#include "tools/terminal/standard_output.h"

namespace tarvel_cli {
namespace {

using tarvel_terminal::WriteOutput;

void WritePage(const std::vector<tarvel_inspect::Report>& reports, const std::string& file) {
  // A rename would put the page in the place of a device.
  std::error_code ignored;
  const auto status = std::filesystem::symlink_status(file, ignored);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw std::runtime_error("can't write " + file + ": it is no regular file");
  }
  if (!zo_base::ReplaceWholeFile(file, tarvel_inspect::ToPage(reports))) {
    throw std::system_error(errno, std::generic_category(), "can't write " + file);
  }
}

}  // namespace

int Inspect(const InspectOptions& options) {
  const auto directories = tarvel_inspect::ClientDirectories(options.directory);
  if (directories.empty()) {
    throw std::runtime_error("no client has left anything in " + options.directory);
  }
  if (directories.size() > 1 && tarvel_inspect::HoldsLog(options.log_dir)) {
    throw std::runtime_error("--log-dir holds the log of one client, and " + options.directory +
                             " has several: name the directory of one");
  }
  std::vector<tarvel_inspect::Report> reports;
  reports.reserve(directories.size());
  for (const std::string& directory : directories) {
    reports.push_back(tarvel_inspect::Inspect(directory, options.log_dir, options.filter,
                                              zo_base::WallClockMilliseconds()));
  }
  if (!options.html.empty()) WritePage(reports, options.html);
  if (options.json) {
    WriteOutput(tarvel_terminal::JsonText(tarvel_inspect::ToJson(reports), 2) + '\n');
    return kDone;
  }
  if (!options.html.empty()) {
    WriteOutput("wrote " + tarvel_terminal::Printable(options.html) + '\n');
    return kDone;
  }
  for (const auto& report : reports) WriteOutput(tarvel_inspect::ToText(report));
  return kDone;
}

}  // namespace tarvel_cli
