#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "base/lock/recursive_mutex.h"
#include "base/log/log_companion.h"

namespace zo_base {

// Log records on their way to the log file, in a companion file mapped into memory: a record costs
// a memory copy and survives a crash of the process. The next start sends the records of a crashed
// process to the sink.
//
// Two processes never share a companion. While the first one lives, the second one keeps its
// records in anonymous memory: they reach the log but don't survive a crash. A forked child leaves
// the companion alone; its records are dropped.
//
// An access to a mapped page that the file no longer has, or for which the disk has no block,
// raises a signal. So the blocks are reserved at the open, and each access first checks the file's
// length and locks the pages; only a cut during an access remains, and a page that the kernel has
// dropped and the disk can't give back. Where the file system doesn't overwrite blocks in place,
// records are written to the file instead.
//
// Threads: any. The sink runs on the thread whose record fills the buffer, under the lock.
class LogFileBuffer {
 public:
  explicit LogFileBuffer(LogSink sink) : sink_(std::move(sink)) {}
  ~LogFileBuffer() { Close(); }

  // Opens and maps the companion, `size` bytes long (clamped to 16 bytes and 64 MiB), and sends its
  // text to the sink. Returns a LogOpenResult; when ready, kLogReady at once.
  std::int32_t Init(const std::string& companion, std::uint32_t size);
  // The last step of Init, which may be repeated after a failure.
  std::int32_t Load();
  bool ready() const { return ready_.load(std::memory_order_acquire); }

  // Adds a record, or sends it to the sink with all before it when it doesn't fit. Drops it when
  // not ready, or when the pages can't be locked.
  void Append(std::string_view text);
  // Sends everything to the sink. When not ready, runs Load and returns whether that failed.
  bool Flush();
  // Flushes and gives the file back.
  void Close();

 private:
  class LockedPages;

  bool Map(const Companion& companion) ZO_REQUIRES(lock_);
  using PageLock = bool (*)(char* base, std::size_t size);
  bool LockPages(PageLock lock_in_memory) ZO_REQUIRES(lock_);
  bool HasAllBytes() const ZO_REQUIRES(lock_);
  bool RestoreBlocks() ZO_REQUIRES(lock_);
  void AppendLocked(std::string_view text) ZO_REQUIRES(lock_);
  std::string_view Text() const ZO_REQUIRES(lock_);
  bool Store(std::int32_t offset, std::string_view data) ZO_REQUIRES(lock_);
  bool StoreUsed(std::int32_t used) ZO_REQUIRES(lock_);
  void Clear() ZO_REQUIRES(lock_);
  bool IsForkedChild() const ZO_REQUIRES(lock_);

  const LogSink sink_;
  _thread_recursive_mutex lock_;
  // The mapping was taken and validated. Only a hint: who sees it takes the lock before the
  // mapping.
  std::atomic<bool> ready_{false};
  std::int32_t used_ ZO_GUARDED_BY(lock_) = 0;  // Text bytes held, as in the file's first field.
  char* base_ ZO_GUARDED_BY(lock_) = nullptr;   // Start of the mapping; null when unmapped.
  std::int32_t size_ ZO_GUARDED_BY(lock_) = 0;  // Length of the mapping.
  int fd_ ZO_GUARDED_BY(lock_) = -1;            // -1 also for memory of our own.
  bool in_place_ ZO_GUARDED_BY(lock_) = true;   // Whether stores go through the mapping.
  pid_t owner_ ZO_GUARDED_BY(lock_) = 0;        // The process that mapped it.
};

}  // namespace zo_base
