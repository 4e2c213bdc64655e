#include "base/log/log_companion.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <optional>

#include "base/process/open_file.h"

namespace zo_base {
namespace {

// An attempt fails when it meets a file that another process is just replacing.
constexpr int kOpenAttempts = 3;

// The text of a companion `length` bytes long; empty when its count doesn't fit.
std::string ReadText(int fd, off_t length) {
  std::int32_t used = 0;
  if (ReadAt(fd, 0, reinterpret_cast<char*>(&used), sizeof used) != sizeof used) return {};
  if (used <= 0 || used > length - kCompanionHeaderSize) return {};
  std::string text(static_cast<std::size_t>(used), '\0');
  const auto read = ReadAt(fd, kCompanionHeaderSize, text.data(), text.size());
  return read == text.size() ? text : std::string();
}

// What to do with the file that was found; nullopt when it has been removed and the next attempt
// makes it anew.
std::optional<Companion> Judge(const std::string& path, const OpenFile& file, std::int32_t size,
                               const LogSink& sink) {
  const int fd = file.fd();
  const off_t length = file.status().st_size;
  // Where files can't be locked, assume that no other process has it.
  if (TEMP_FAILURE_RETRY(flock(fd, LOCK_EX | LOCK_NB)) != 0 && errno == EWOULDBLOCK) {
    return Companion{kLogReady, -1, size};
  }
  if (!file.IsAt(path)) return std::nullopt;
  // A file with a second name may belong to the user: don't read or change it.
  if (file.status().st_nlink > 1) {
    if (unlink(path.c_str()) == 0) return std::nullopt;
    return Companion{};
  }
  if (length == 0 || length == size) return Companion{kLogReady, fd, size};
  if (length > kLargestCompanion) {
    if (unlink(path.c_str()) == 0) return std::nullopt;
    return Companion{kLogNotMapped, -1, 0};
  }
  // The text first: after a crash in between it is in both places, not in none.
  const std::string text = ReadText(fd, length);
  if (!text.empty()) {
    sink(WithLoadBanners(text));
    if (!WriteAt(fd, 0, std::string(kCompanionHeaderSize, '\0'))) return Companion{};
  }
  if (unlink(path.c_str()) == 0) return std::nullopt;
  if (length < kSmallestCompanion) return Companion{};
  return Companion{kLogReady, fd, static_cast<std::int32_t>(length)};
}

}  // namespace

Companion OpenCompanion(const std::string& path, std::int32_t size, const LogSink& sink) {
  for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
    OpenFile file(path, O_RDWR | O_CREAT);
    if (!file) break;
    const std::optional<Companion> found = Judge(path, file, size, sink);
    if (!found) continue;
    if (found->fd >= 0) static_cast<void>(file.Release());
    return *found;
  }
  return {};
}

std::string WithLoadBanners(std::string_view text) {
  return std::string(
             "\r\n -----------------------load from mmap file begin-----------------------\r\n")
      .append(text)
      .append("\r\n -----------------------load from mmap file end-----------------------\r\n");
}

}  // namespace zo_base
