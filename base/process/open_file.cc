#include "base/process/open_file.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "base/process/file_size_signal.h"

namespace zo_base {
namespace {

// Calls `write_some(data)` until all is written.
template <class WriteSome>
bool WriteInParts(std::string_view data, WriteSome write_some) {
  const FileSizeSignalBlocked blocked;
  while (!data.empty()) {
    const ssize_t written = TEMP_FAILURE_RETRY(write_some(data));
    if (written < 0) return false;
    data.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

OpenFile::OpenFile(const std::string& path, int flags)
    : fd_(static_cast<int>(TEMP_FAILURE_RETRY(
          open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR)))) {
  if (fd_ < 0) {
    error_ = errno;
  } else if (fstat(fd_, &status_) != 0 || !S_ISREG(status_.st_mode)) {
    close(std::exchange(fd_, -1));
  }
}

OpenFile::~OpenFile() {
  if (fd_ >= 0) UnlockAndClose(fd_);
}

bool OpenFile::IsAt(const std::string& path) const {
  struct stat named {};
  return lstat(path.c_str(), &named) == 0 && named.st_ino == status_.st_ino &&
         named.st_dev == status_.st_dev;
}

void UnlockAndClose(int fd) {
  TEMP_FAILURE_RETRY(flock(fd, LOCK_UN));
  close(fd);
}

std::optional<std::size_t> ReadAt(int fd, off_t offset, char* out, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t read =
        TEMP_FAILURE_RETRY(pread(fd, out + done, size - done, offset + static_cast<off_t>(done)));
    if (read < 0) return std::nullopt;
    if (read == 0) break;
    done += static_cast<std::size_t>(read);
  }
  return done;
}

bool WriteAt(int fd, off_t offset, std::string_view data) {
  const char* const begin = data.data();
  return WriteInParts(data, [&](std::string_view rest) {
    return pwrite(fd, rest.data(), rest.size(), offset + (rest.data() - begin));
  });
}

bool WriteAll(int fd, std::string_view data) {
  return WriteInParts(data,
                      [fd](std::string_view rest) { return write(fd, rest.data(), rest.size()); });
}

}  // namespace zo_base
