#include "tools/inspect/log_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include "base/text/strings.h"
#include "tools/inspect/client_file.h"

namespace tarvel_inspect {
namespace {

constexpr char kLogName[] = "/tarvel_comp.log";
constexpr char kCompanionName[] = "/tarvel_comp.log.kvr_mmap";
// A log is cut at 8 MiB, or to 32 MiB when it was far beyond.
constexpr std::size_t kLongestLog = 64 << 20;
constexpr std::size_t kLongestCompanion = 1 << 20;

// Returns the content, or nullopt and a sentence among the problems if there is something.
std::optional<std::string> Read(const std::string& path, std::size_t longest, std::size_t skipped,
                                LogText& log) {
  ClientFile file = ReadClientFile(path, longest, skipped);
  if (!file.problem.empty()) log.problems.push_back(path + ": " + file.problem + '.');
  log.written_at = std::max(log.written_at, file.written_at);
  return std::move(file.content);
}

// How many bytes at the begin of `text` are in the log already, at its end: a client that was
// killed while it moved its text has a part in both, and one that moves it now may have all, with
// new text behind it.
std::size_t MovedBytes(std::string_view text, std::string_view log) {
  if (text.empty()) return 0;
  const auto borders = zo_base::BordersOf(text);
  std::size_t length = 0;
  for (const char c : log.substr(log.size() - std::min(log.size(), 2 * kLongestCompanion))) {
    while (length > 0 && text[length] != c) length = borders[length - 1];
    if (text[length] == c) ++length;
    if (length == text.size()) break;
  }
  return length;
}

// A client that was killed while it moved its text left a part of it in the log. The next start
// wrote all of it, between banners. Removes what stands there twice.
void RemoveLoadedTwice(std::string& log) {
  constexpr std::string_view kBegin =
      "\r\n -----------------------load from mmap file begin-----------------------\r\n";
  constexpr std::string_view kEnd = "\r\n -----------------------load from mmap file end";
  constexpr std::size_t kFurther = 4'096;  // What others may have written in between.
  std::string kept;
  std::size_t done = 0;
  for (std::size_t at = log.find(kBegin); at != std::string::npos; at = log.find(kBegin, done)) {
    const std::size_t begin = at + kBegin.size();
    const std::size_t end = std::min(log.find(kEnd, begin), log.size());
    const std::string_view loaded = std::string_view(log).substr(begin, end - begin);
    kept.append(log, done, begin - done);
    const std::string_view before = std::string_view(log).substr(0, at);
    const std::size_t near = std::min(before.size(), 2 * loaded.size() + kFurther);
    kept += loaded.substr(MovedBytes(loaded, before.substr(before.size() - near)));
    done = end;
  }
  if (done > 0) log = kept.append(log, done, std::string::npos);
}

// The companion begins with the number of its text's bytes.
void AppendCompanion(const std::string& path, const std::string& content, LogText& log) {
  std::int32_t used = 0;
  if (content.size() < sizeof used) {
    if (!content.empty())
      log.problems.push_back(path + ": it is cut short, so its records are lost.");
    return;
  }
  std::memcpy(&used, content.data(), sizeof used);
  if (used < 0 || static_cast<std::size_t>(used) > content.size() - sizeof used) {
    log.problems.push_back(path + ": it has a damaged count, so its records can't be told.");
    return;
  }
  log.companion_bytes = used;
  const std::string_view text(content.data() + sizeof used, static_cast<std::size_t>(used));
  log.text += text.substr(MovedBytes(text, log.text));
}

// Processes that hold a lock on the file, as the system lists them:
// "1: FLOCK  ADVISORY  WRITE 12433 08:01:5375 0 EOF". Some file systems list another device than
// the one that a file says, so only its number counts.
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

bool HoldsLog(const std::string& directory) {
  return MayExist(directory + kLogName) || MayExist(directory + kCompanionName);
}

std::size_t LengthOfLog(const std::string& directory) {
  struct stat info {};
  return lstat((directory + kLogName).c_str(), &info) == 0 ? static_cast<std::size_t>(info.st_size)
                                                           : 0;
}

LogText ReadLog(const std::string& directory, std::size_t skipped) {
  LogText log;
  const std::string companion = directory + kCompanionName;
  // First the companion: a client that moves its text meanwhile leaves it in both, rather than in
  // none.
  const auto content = Read(companion, kLongestCompanion, 0, log);
  if (auto text = Read(directory + kLogName, kLongestLog, skipped, log)) {
    log.text = *std::move(text);
    log.log_bytes = static_cast<std::int64_t>(log.text.size());
  }
  RemoveLoadedTwice(log.text);
  if (content) AppendCompanion(companion, *content, log);
  log.writers = HoldersOf(companion);
  return log;
}

}  // namespace tarvel_inspect
