#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace zo_base {

static_assert(sizeof(off_t) == 8, "define _FILE_OFFSET_BITS=64: a log may pass 2 GiB");

// Owns a descriptor; negative for none.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  int get() const { return fd_; }
  // False when the system has reported a late failure of a write.
  [[nodiscard]] bool Close() { return close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_;
};

// A regular file, opened at a path where anything may stand: follows no link, waits for no FIFO,
// and closes on exec. A file that it creates is private to the user. The destructor releases
// a lock that was taken on the file.
class OpenFile {
 public:
  OpenFile(const std::string& path, int flags);
  ~OpenFile();
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  explicit operator bool() const { return fd_ >= 0; }
  // The errno of a failed open. 0 when the file is open, is no regular file, or couldn't be
  // examined.
  int error() const { return error_; }
  int fd() const { return fd_; }
  const struct stat& status() const { return status_; }  // When it was opened.

  // Whether `path` still names this file.
  bool IsAt(const std::string& path) const;
  // Hands the descriptor over to the caller.
  [[nodiscard]] int Release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
  int error_ = 0;
  struct stat status_ {};
};

// Closes a file and releases its lock. A close alone leaves the lock with every child that was
// forked meanwhile.
void UnlockAndClose(int fd);

// How many bytes were read, fewer than `size` only at the end of the file; nullopt on a failure.
[[nodiscard]] std::optional<std::size_t> ReadAt(int fd, off_t offset, char* out, std::size_t size);

// Both write all of `data`, or return false.
[[nodiscard]] bool WriteAt(int fd, off_t offset, std::string_view data);
[[nodiscard]] bool WriteAll(int fd, std::string_view data);

}  // namespace zo_base
