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
#include <memory>
#include <string_view>
#include <system_error>

#include "base/process/filesystem.h"

namespace zo_base {
namespace {

constexpr std::string_view kSiblingEnding = ".tmp";

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<std::FILE, CloseFile>;

// Tells this process from an earlier one that had the same number.
std::string ProcessStamp() {
  static const std::int64_t first_use = std::chrono::system_clock::now().time_since_epoch().count();
  return std::to_string(getpid()) + "-" + std::to_string(first_use) + "-";
}

// A name of its own for each writer: of two that share one, the slower would give the file's name
// to half of a text. "<path>.<process>-<first use>-<number>.tmp"
std::string SiblingOf(const std::string& path) {
  static std::atomic<std::uint32_t> last_number{0};
  std::string sibling = path;
  sibling.append(".").append(ProcessStamp()).append(std::to_string(++last_number));
  return sibling.append(kSiblingEnding);
}

bool IsAlive(pid_t process) { return kill(process, 0) == 0 || errno != ESRCH; }

// Whether `name` is a sibling of `file` that nobody writes any more.
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

// Errors of an open that tell of the process or the system, and not of the file.
bool IsShortOfSomething(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == EINTR || error == EIO;
}

bool WriteToDisk(std::FILE* file, const std::string& text) {
  return fchmod(fileno(file), S_IRUSR | S_IWUSR) == 0 &&
         std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0 &&
         fsync(fileno(file)) == 0;
}

}  // namespace

FileRead ReadWholeFile(const std::string& path, std::size_t longest, std::string& text) {
  text.clear();
  // Without O_NONBLOCK the open of a FIFO would wait for its writer.
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) return IsShortOfSomething(errno) ? FileRead::kFailed : FileRead::kDone;
  const OpenFile file(fdopen(fd, "rb"));
  if (file == nullptr) {
    close(fd);
    return FileRead::kFailed;
  }
  struct stat status {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return FileRead::kDone;
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (size > longest) return FileRead::kTooLong;
  text.resize(static_cast<std::size_t>(size));
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  return std::ferror(file.get()) == 0 ? FileRead::kDone : FileRead::kFailed;
}

bool ReplaceWholeFile(const std::string& path, const std::string& text) {
  const std::string sibling = SiblingOf(path);
  // "x": whatever has taken the name, such as a link to elsewhere, isn't written to.
  OpenFile file(std::fopen(sibling.c_str(), "w+xe"));
  if (file == nullptr) return false;
  const bool replaced = WriteToDisk(file.get(), text) && std::fclose(file.release()) == 0 &&
                        std::rename(sibling.c_str(), path.c_str()) == 0;
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
