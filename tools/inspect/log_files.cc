#include "tools/inspect/log_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

#include "base/file/whole_file.h"

namespace tarvel_inspect {
namespace {

constexpr char kLogName[] = "/tarvel_comp.log";
constexpr char kCompanionName[] = "/tarvel_comp.log.kvr_mmap";
// A log is cut at 8 MiB, or to 32 MiB when it was far beyond.
constexpr std::size_t kLongestLog = 64 << 20;
constexpr std::size_t kLongestCompanion = 1 << 20;

// Reads the file into `text`. Returns its length, or -1, with a problem if there is something.
std::int64_t ReadFile(const std::string& path, std::size_t longest, std::string& text,
                      LogText& log) {
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) return -1;
  if (!S_ISREG(info.st_mode)) {
    log.problems.push_back(path + " is no regular file, and the library would not read it either.");
    return -1;
  }
  switch (zo_base::ReadWholeFile(path, longest, text)) {
    case zo_base::FileRead::kTooLong:
      log.problems.push_back(path + " is too long for a file of the library.");
      return -1;
    case zo_base::FileRead::kFailed:
      log.problems.push_back(path + " can't be read: " + std::generic_category().message(errno) +
                             ".");
      return -1;
    case zo_base::FileRead::kDone:
      break;
  }
  log.written_at = std::max(
      log.written_at, std::int64_t{info.st_mtim.tv_sec} * 1'000 + info.st_mtim.tv_nsec / 1'000'000);
  return static_cast<std::int64_t>(text.size());
}

// The companion begins with the number of its text's bytes.
void AppendCompanion(const std::string& path, const std::string& content, LogText& log) {
  std::int32_t used = 0;
  if (content.size() < sizeof used) {
    if (!content.empty()) log.problems.push_back(path + " is cut short, so its records are lost.");
    return;
  }
  std::memcpy(&used, content.data(), sizeof used);
  if (used < 0 || static_cast<std::size_t>(used) > content.size() - sizeof used) {
    log.problems.push_back(path + " has a damaged count, so its records can't be told.");
    return;
  }
  log.companion_bytes = used;
  const std::string_view text(content.data() + sizeof used, static_cast<std::size_t>(used));
  // A client that was killed while it moved its text, or moves it now, has it in both.
  const std::string_view tail = std::string_view(log.text).substr(
      log.text.size() - std::min(log.text.size(), kLongestCompanion));
  if (tail.find(text) == std::string_view::npos) log.text += text;
}

// Processes that hold a lock on the file, as the system lists them:
// "1: FLOCK  ADVISORY  WRITE 12433 08:01:5375 0 EOF".
std::vector<std::int32_t> HoldersOf(const std::string& path) {
  std::vector<std::int32_t> holders;
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) return holders;
  const std::string inode = ":" + std::to_string(info.st_ino);
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream fields(line);
    std::string number, kind, mode, access, file;
    std::int32_t process = 0;
    fields >> number >> kind >> mode >> access >> process >> file;
    if (kind == "FLOCK" && file.ends_with(inode) && process > 0) holders.push_back(process);
  }
  return holders;
}

}  // namespace

LogText ReadLog(const std::string& directory) {
  LogText log;
  const std::string companion = directory + kCompanionName;
  std::string content;
  // First the companion: a client that moves its text meanwhile leaves it in both, rather than in
  // none.
  const bool has_companion = ReadFile(companion, kLongestCompanion, content, log) >= 0;
  log.log_bytes = ReadFile(directory + kLogName, kLongestLog, log.text, log);
  if (has_companion) AppendCompanion(companion, content, log);
  log.writers = HoldersOf(companion);
  return log;
}

}  // namespace tarvel_inspect
