#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "base/lock/recursive_mutex.h"
#include "base/log/log_file_buffer.h"

namespace zo_base {

// A log file with its buffer. Records wait in the buffer (a companion file) and are appended to the
// log together when it is full, at a flush, or after a crash at the next start. A log that reaches
// its limit loses half of the limit at its front, or more when it is far above; the cut may be in
// the middle of a line. Text that can't be written is dropped.
//
// Files of a log at P: P; P + ".kvr_mmap", the companion; P + ".tmp", only while the log is cut.
//
// Threads: any. The thread whose record fills the buffer writes the file, while all others wait.
class LogFile {
 public:
  static constexpr std::uint32_t kDefaultMaxFileSize = 8 * 1024 * 1024;
  static constexpr std::uint32_t kDefaultBufferSize = 64 * 1024;

  LogFile() = default;
  ~LogFile() { Close(); }

  // Sizes in bytes, 0 for the default. A LogOpenResult.
  std::int32_t Open(const std::string& path, std::uint32_t max_file_size,
                    std::uint32_t buffer_size);
  // Whether text written now would be kept. Takes no lock, since a record asks before it is built.
  bool IsReady() const { return is_ready_.load(std::memory_order_acquire); }
  void Write(std::string_view text);
  // See LogFileBuffer::Flush. False when not open.
  bool Flush();
  void Close();

  std::string path() const;

  // Writes to the file, past the buffer. Always true: text that can't be written is dropped.
  bool AppendToFile(const std::string& text);

 private:
  void UpdateReadiness() ZO_REQUIRES(lock_);
  void Append(const std::string& text) ZO_REQUIRES(lock_);
  void Shrink() ZO_REQUIRES(lock_);

  // Written under `lock_`. Read without it, as a hint: Write takes the lock and checks again.
  std::atomic<bool> is_ready_{false};

  // Held for whole operations: the buffer doesn't change under a record.
  mutable _thread_recursive_mutex lock_;
  std::uint32_t max_file_size_ ZO_GUARDED_BY(lock_) = kDefaultMaxFileSize;
  std::unique_ptr<LogFileBuffer> buffer_ ZO_GUARDED_BY(lock_);  // From Open to Close.
  std::string path_ ZO_GUARDED_BY(lock_);
};

// Creates the directory of the file `path`, with its parents. A failure makes the open fail.
void MakeDirectoryOf(const std::string& path);

}  // namespace zo_base
