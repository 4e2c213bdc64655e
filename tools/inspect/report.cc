#include "tools/inspect/report.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/text/strings.h"
#include "tools/inspect/client_file.h"
#include "tools/inspect/log_files.h"
#include "tools/inspect/log_records.h"

namespace tarvel_inspect {
namespace {

namespace fs = std::filesystem;

bool IsOfClient(const fs::path& directory) {
  return HoldsLog(directory.string()) || MayExist(directory / "lbs") ||
         MayExist(directory / "http_dns");
}

// The directories of clients in `root`, which may be missing.
std::vector<std::string> BusinessesIn(const fs::path& root) {
  std::vector<std::string> found;
  std::error_code error;
  for (fs::directory_iterator entry(root, error), end; !error && entry != end;
       entry.increment(error)) {
    if (IsOfClient(entry->path())) found.push_back(entry->path().string());
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    throw std::system_error(error, "can't read " + zo_base::Printable(root.string(), PATH_MAX));
  }
  std::sort(found.begin(), found.end());
  return found;
}

// Where the log of a client is that was given `log_directory`, or the directory itself.
std::string LogDirectoryOf(const fs::path& client_directory, const fs::path& log_directory) {
  fs::path client = fs::absolute(client_directory).lexically_normal();
  if (!client.has_filename()) client = client.parent_path();  // A slash was at its end.
  const fs::path business = client.filename();
  for (const fs::path& place :
       {log_directory / "tarvel_comp" / business, log_directory / business}) {
    if (HoldsLog(place.string())) return place.string();
  }
  return log_directory.string();
}

// Of several lives of a process, only the last one can go on.
void MarkRunning(const std::vector<std::int32_t>& writers, std::vector<Life>& lives) {
  for (const std::int32_t process : writers) {
    const auto last = std::find_if(lives.rbegin(), lives.rend(),
                                   [&](const Life& life) { return life.process == process; });
    if (last != lives.rend()) last->runs = !last->has_exit;
  }
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
  auto found = BusinessesIn(fs::path(directory) / "tarvel_comp");
  return found.empty() ? BusinessesIn(directory) : found;
}

Report Inspect(const std::string& client_directory, const std::string& log_directory,
               const Filter& filter, std::int64_t now) {
  Report report;
  report.directory = zo_base::Printable(client_directory, PATH_MAX);
  report.inspected_at = now;
  report.caches = ReadCaches(client_directory, now);
  const std::string log_place =
      log_directory.empty() ? client_directory : LogDirectoryOf(client_directory, log_directory);
  LogText log = ReadLog(log_place);
  if (!log_directory.empty() && log.problems.empty() && !HoldsLog(log_place))
    log.problems.push_back(log_place + ": it holds no log.");
  report.log_bytes = log.log_bytes;
  report.companion_bytes = log.companion_bytes;
  for (const std::string& problem : log.problems) {
    report.problems.push_back(zo_base::Printable(problem, PATH_MAX + 100));
  }
  const auto records = ReadRecords(log.text, log.written_at);
  if (records.empty() && !log.text.empty())
    report.problems.push_back("The log holds no record of the library.");
  auto [lives, left_out] = ReadLives(records);
  report.lives = std::move(lives);
  if (left_out > 0) {
    report.problems.push_back("The log holds " + std::to_string(left_out) +
                              " older lives, which are left out.");
  }
  if (filter.process) {
    std::erase_if(report.lives, [&](const Life& life) { return life.process != *filter.process; });
  }
  MarkRunning(log.writers, report.lives);
  if (!report.lives.empty()) report.verdict = Judge(report.lives.back(), report.caches);
  Apply(filter, report.lives);
  return report;
}

}  // namespace tarvel_inspect
