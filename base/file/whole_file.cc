#include "base/file/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <system_error>

#include "base/process/filesystem.h"
#include "base/process/open_file.h"

namespace zo_base {
namespace {

constexpr std::string_view kSiblingEnding = ".tmp";

// Tells this process from an earlier one that had the same number.
std::string ProcessStamp() {
  static const std::int64_t first_use = std::chrono::system_clock::now().time_since_epoch().count();
  return std::to_string(getpid()) + "-" + std::to_string(first_use) + "-";
}

// "<path>.<process>-<first use>-<number>.tmp", another name for each writer: of two that share one,
// the slower would rename a half-written file.
std::string SiblingOf(const std::string& path) {
  static std::atomic<std::uint32_t> last_number{0};
  std::string sibling = path;
  sibling.append(".").append(ProcessStamp()).append(std::to_string(++last_number));
  return sibling.append(kSiblingEnding);
}

bool IsAlive(pid_t process) { return kill(process, 0) == 0 || errno != ESRCH; }

// Whether `name` is a sibling of `file` whose writer has ended.
bool IsLeftover(std::string_view name, std::string_view file) {
  if (!name.starts_with(file) || !name.ends_with(kSiblingEnding)) return false;
  name.remove_prefix(file.size());
  if (!name.starts_with(".")) return false;
  name.remove_prefix(1);
  pid_t owner = 0;
  const auto number = std::from_chars(name.data(), name.data() + name.size(), owner);
  const bool is_sibling = number.ec == std::errc() && owner > 0 && *number.ptr == '-';
  if (!is_sibling) return false;
  return owner == getpid() ? !name.starts_with(ProcessStamp()) : !IsAlive(owner);
}

// Whether an open has failed because of the process or the system, not because of the file.
bool IsShortOfSomething(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == EINTR || error == EIO;
}

// Makes the file private whatever the umask is.
bool WriteToDisk(FileDescriptor& file, const std::string& text) {
  return fchmod(file.get(), S_IRUSR | S_IWUSR) == 0 && WriteAll(file.get(), text) &&
         fsync(file.get()) == 0 && file.Close();
}

}  // namespace

FileRead ReadWholeFile(const std::string& path, std::size_t longest, std::string& text) {
  text.clear();
  const OpenFile file(path, O_RDONLY);
  if (!file) return IsShortOfSomething(file.error()) ? FileRead::kFailed : FileRead::kDone;
  const auto size = static_cast<std::uint64_t>(file.status().st_size);
  if (size > longest) return FileRead::kTooLong;
  text.resize(static_cast<std::size_t>(size));
  const auto read = ReadAt(file.fd(), 0, text.data(), text.size());
  text.resize(read.value_or(0));
  return read ? FileRead::kDone : FileRead::kFailed;
}

bool ReplaceWholeFile(const std::string& path, const std::string& text) {
  const std::string sibling = SiblingOf(path);
  // O_EXCL makes the open fail on a link of this name, so nothing is written through it.
  FileDescriptor file(open(sibling.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR));
  if (file.get() < 0) return false;
  const bool replaced = WriteToDisk(file, text) && std::rename(sibling.c_str(), path.c_str()) == 0;
  if (!replaced) unlink(sibling.c_str());
  return replaced;
}

void RemoveLeftovers(const std::string& path) {
  const filesystem::path file(path);
  std::error_code error;
  filesystem::directory_iterator entry(file.parent_path(), error);
  for (; !error && entry != filesystem::directory_iterator(); entry.increment(error)) {
    if (IsLeftover(entry->path().filename().string(), file.filename().string())) {
      unlink(entry->path().c_str());
    }
  }
}

}  // namespace zo_base
