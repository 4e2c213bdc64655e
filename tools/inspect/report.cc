#include "tools/inspect/report.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/text/strings.h"
#include "tools/inspect/log_files.h"
#include "tools/inspect/log_records.h"

namespace tarvel_inspect {
namespace {

namespace fs = std::filesystem;

bool IsOfClient(const fs::path& directory) {
  const auto has = [&](const char* name) {
    std::error_code ignored;
    return fs::symlink_status(directory / name, ignored).type() != fs::file_type::not_found;
  };
  return has("tarvel_comp.log") || has("tarvel_comp.log.kvr_mmap") || has("lbs") || has("http_dns");
}

// Leaves the requests that the filter wants.
void Apply(const Filter& filter, std::vector<Life>& lives) {
  std::size_t left = filter.last.value_or(SIZE_MAX);
  for (auto life = lives.rbegin(); life != lives.rend(); ++life) {
    auto& requests = life->requests;
    if (filter.since) {
      std::erase_if(requests,
                    [&](const Request& request) { return request.first.start < *filter.since; });
    }
    if (requests.size() > left)
      requests.erase(requests.begin(), requests.end() - static_cast<std::ptrdiff_t>(left));
    left -= requests.size();
  }
}

}  // namespace

std::vector<std::string> ClientDirectories(const std::string& directory) {
  if (IsOfClient(directory)) return {directory};
  std::vector<std::string> found;
  for (const fs::path& root : {fs::path(directory) / "tarvel_comp", fs::path(directory)}) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(root, error)) {
      if (IsOfClient(entry.path())) found.push_back(entry.path().string());
    }
    if (!found.empty()) break;
  }
  std::sort(found.begin(), found.end());
  return found;
}

Report Inspect(const std::string& client_directory, const std::string& log_directory,
               const Filter& filter, std::int64_t now) {
  Report report;
  report.directory = zo_base::Printable(client_directory, PATH_MAX);
  report.inspected_at = now;
  report.caches = ReadCaches(client_directory, now);
  LogText log = ReadLog(log_directory.empty() ? client_directory : log_directory);
  report.log_bytes = log.log_bytes;
  report.companion_bytes = log.companion_bytes;
  for (const std::string& problem : log.problems) {
    report.problems.push_back(zo_base::Printable(problem, PATH_MAX + 100));
  }
  const auto records = ReadRecords(log.text, log.written_at);
  if (records.empty() && !log.text.empty())
    report.problems.push_back("The log holds no record of the library.");
  report.lives = ReadLives(records);
  if (filter.process) {
    std::erase_if(report.lives, [&](const Life& life) { return life.process != *filter.process; });
  }
  for (Life& life : report.lives) {
    const auto& writers = log.writers;
    life.runs = !life.has_exit && std::count(writers.begin(), writers.end(), life.process) > 0;
  }
  if (!report.lives.empty()) report.verdict = Judge(report.lives.back(), report.caches);
  Apply(filter, report.lives);
  return report;
}

}  // namespace tarvel_inspect
