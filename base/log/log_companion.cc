#include "base/log/log_companion.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <optional>

namespace zo_base {
namespace {

// Each try that fails has met a file that another process was just replacing.
constexpr int kOpenTries = 3;

bool ReadAt(int fd, off_t offset, char* out, std::size_t size) {
  while (size > 0) {
    const ssize_t read = TEMP_FAILURE_RETRY(pread(fd, out, size, offset));
    if (read <= 0) return false;
    out += read;
    offset += read;
    size -= static_cast<std::size_t>(read);
  }
  return true;
}

// The text of a companion `length` bytes long; empty when its count doesn't fit.
std::string ReadText(int fd, off_t length) {
  std::int32_t used = 0;
  if (!ReadAt(fd, 0, reinterpret_cast<char*>(&used), sizeof used)) return {};
  if (used <= 0 || used > length - kCompanionHeaderSize) return {};
  std::string text(static_cast<std::size_t>(used), '\0');
  return ReadAt(fd, kCompanionHeaderSize, text.data(), text.size()) ? text : std::string();
}

// Whether `path` still names the file that was opened.
bool IsFileAt(const std::string& path, const struct stat& opened) {
  struct stat named {};
  return lstat(path.c_str(), &named) == 0 && named.st_ino == opened.st_ino &&
         named.st_dev == opened.st_dev;
}

// What to do with the file that was found; nothing when it has been removed and the next try makes
// it anew.
std::optional<Companion> Judge(const std::string& path, int fd, std::int32_t size,
                               const LogSink& sink) {
  struct stat found {};
  // Whatever else stands there (a directory, a FIFO) is no companion.
  if (fstat(fd, &found) != 0 || !S_ISREG(found.st_mode)) return Companion{};
  // Where files can't be locked, nobody else is taken to be there.
  if (TEMP_FAILURE_RETRY(flock(fd, LOCK_EX | LOCK_NB)) != 0 && errno == EWOULDBLOCK) {
    return Companion{kLogReady, -1, size};
  }
  if (!IsFileAt(path, found)) return std::nullopt;
  // A file of another name too may be somebody's own: its bytes are neither read nor changed.
  if (found.st_nlink > 1) {
    if (unlink(path.c_str()) == 0) return std::nullopt;
    return Companion{};
  }
  if (found.st_size == 0 || found.st_size == size) return Companion{kLogReady, fd, size};
  if (found.st_size > kLargestCompanion) {
    if (unlink(path.c_str()) == 0) return std::nullopt;
    return Companion{kLogNotMapped, -1, 0};
  }
  // The text first: a process that dies in between leaves it in both places rather than in none.
  const std::string text = ReadText(fd, found.st_size);
  if (!text.empty()) {
    sink(WithLoadBanners(text));
    constexpr std::int32_t kNothing = 0;
    if (TEMP_FAILURE_RETRY(pwrite(fd, &kNothing, sizeof kNothing, 0)) != sizeof kNothing) {
      return Companion{};
    }
  }
  if (unlink(path.c_str()) == 0) return std::nullopt;
  if (found.st_size < kSmallestCompanion) return Companion{};
  return Companion{kLogReady, fd, static_cast<std::int32_t>(found.st_size)};
}

}  // namespace

Companion OpenCompanion(const std::string& path, std::int32_t size, const LogSink& sink) {
  // Non-blocking and no link, since anything may stand there. Private, since logs hold the token.
  constexpr int kFlags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  for (int tries = 0; tries < kOpenTries; ++tries) {
    const int fd =
        static_cast<int>(TEMP_FAILURE_RETRY(open(path.c_str(), kFlags, S_IRUSR | S_IWUSR)));
    if (fd < 0) break;
    const std::optional<Companion> found = Judge(path, fd, size, sink);
    if (!found || found->fd != fd) UnlockAndClose(fd);
    if (found) return *found;
  }
  return {};
}

void UnlockAndClose(int fd) {
  TEMP_FAILURE_RETRY(flock(fd, LOCK_UN));
  close(fd);
}

std::string WithLoadBanners(std::string_view text) {
  return std::string(
             "\r\n -----------------------load from mmap file begin-----------------------\r\n")
      .append(text)
      .append("\r\n -----------------------load from mmap file end-----------------------\r\n");
}

}  // namespace zo_base
