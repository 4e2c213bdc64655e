#include "base/log/log_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <system_error>
#include <thread>

#include "base/process/filesystem.h"
#include "base/process/open_file.h"

namespace zo_base {
namespace {

constexpr std::size_t kCopyChunk = 8192;
// The most that is kept of a log far above its limit, which couldn't be cut for long: all threads
// that log wait for the copy. A usual cut keeps less.
constexpr off_t kLongestCopy = off_t{32} * 1024 * 1024;
// Another process may be writing or cutting the same log, for a few milliseconds. If that process
// is stopped, this one continues without the lock.
constexpr int kLockAttempts = 50;
constexpr std::chrono::milliseconds kLockPause{2};

// Locks the file for this process. Returns false when another keeps it locked.
bool LockAgainstOtherProcesses(const OpenFile& file) {
  for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
    // Where files can't be locked there is no process to wait for.
    const long locked = TEMP_FAILURE_RETRY(flock(file.fd(), LOCK_EX | LOCK_NB));
    if (locked == 0 || errno != EWOULDBLOCK) return true;
    std::this_thread::sleep_for(kLockPause);
  }
  return false;
}

bool CopyFrom(int from, off_t offset, int to) {
  std::array<char, kCopyChunk> chunk;
  while (true) {
    const auto read = ReadAt(from, offset, chunk.data(), chunk.size());
    if (!read || !WriteAll(to, {chunk.data(), *read})) return false;
    if (*read < chunk.size()) return true;
    offset += static_cast<off_t>(*read);
  }
}

}  // namespace

std::int32_t LogFile::Open(const std::string& path, std::uint32_t max_file_size,
                           std::uint32_t buffer_size) {
  MutexLock lock(lock_);
  path_ = path;
  max_file_size_ = max_file_size != 0 ? max_file_size : kDefaultMaxFileSize;
  std::int32_t result = kLogReady;
  if (buffer_ == nullptr) {
    buffer_ = std::make_unique<LogFileBuffer>(
        [this](const std::string& text) { return AppendToFile(text); });
    result = buffer_->Init(path + ".kvr_mmap", buffer_size != 0 ? buffer_size : kDefaultBufferSize);
  } else {
    result = buffer_->Load();
    if (result == kLogPagesNotLocked) result = kLogNotMapped;
  }
  UpdateReadiness();
  return result;
}

void LogFile::UpdateReadiness() {
  is_ready_.store(buffer_ && buffer_->ready(), std::memory_order_release);
}

void LogFile::Write(std::string_view text) {
  MutexLock lock(lock_);
  if (buffer_) buffer_->Append(text);
}

bool LogFile::Flush() {
  MutexLock lock(lock_);
  if (!buffer_) return false;
  const bool result = buffer_->Flush();
  UpdateReadiness();
  return result;
}

std::string LogFile::path() const {
  MutexLock lock(lock_);
  return path_;
}

void LogFile::Close() {
  MutexLock lock(lock_);
  if (buffer_) buffer_->Close();
  buffer_.reset();
  UpdateReadiness();
}

void MakeDirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return;
  std::error_code failed;
  filesystem::create_directories(path.substr(0, slash), failed);
}

bool LogFile::AppendToFile(const std::string& text) {
  MutexLock lock(lock_);
  Append(text);
  Shrink();
  return true;
}

void LogFile::Append(const std::string& text) {
  // A second round if another process has replaced the log in between.
  for (int round = 0; round < 2; ++round) {
    const OpenFile log(path_, O_WRONLY | O_APPEND | O_CREAT);
    if (!log) return;
    LockAgainstOtherProcesses(log);
    if (round == 0 && !log.IsAt(path_)) continue;
    static_cast<void>(WriteAll(log.fd(), text));
    return;
  }
}

void LogFile::Shrink() {
  const OpenFile log(path_, O_RDONLY);
  const off_t limit = max_file_size_;
  if (!log || limit > log.status().st_size) return;
  if (!LockAgainstOtherProcesses(log) || !log.IsAt(path_)) return;
  const std::string temporary_path = path_ + ".tmp";
  unlink(temporary_path.c_str());  // One that was left behind, or planted.
  const OpenFile temporary(temporary_path, O_WRONLY | O_CREAT | O_EXCL);
  if (!temporary) return;
  // A copy that is not whole, on a full disk, must not take the log's place.
  const off_t cut = std::max(limit / 2, log.status().st_size - std::max(limit, kLongestCopy));
  if (!CopyFrom(log.fd(), cut, temporary.fd()) ||
      std::rename(temporary_path.c_str(), path_.c_str()) != 0) {
    unlink(temporary_path.c_str());
  }
}

}  // namespace zo_base
