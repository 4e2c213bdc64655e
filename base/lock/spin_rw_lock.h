#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "base/lock/assert.h"
#include "base/lock/thread_annotations.h"

namespace zo_base {

// A lock for many readers or one writer, for short times: a waiting thread spins. A waiting writer
// blocks new readers.
//
// The writer may lock again, for writing; a reader must not lock again, nor the writer for reading.
class ZO_CAPABILITY("mutex") SpinRWLock {
 public:
  // What a waiting thread does between two checks.
  enum Mode : std::int32_t { kYield = 0, kSleep = 1 };

  explicit SpinRWLock(Mode mode = kYield, std::int64_t sleep_us = 100)
      : mode_(mode), sleep_us_(sleep_us) {}

  void LockRead() ZO_ACQUIRE_SHARED();
  void UnlockRead() ZO_RELEASE_SHARED();
  void LockWrite() ZO_ACQUIRE();
  void UnlockWrite() ZO_RELEASE();

 private:
  void Pause() const;

  const Mode mode_;
  const std::int64_t sleep_us_;  // Microseconds.
  std::atomic<bool> writer_flag_{false};
  std::atomic<std::int32_t> readers_{0};
  std::atomic<std::thread::id> writer_{};
  std::int32_t writer_depth_ = 0;  // Not locked: only the writer touches it.
};

// Hold the lock for the length of a scope.
class [[nodiscard]] ZO_SCOPED_CAPABILITY ReadLock {
 public:
  explicit ReadLock(SpinRWLock& lock) ZO_ACQUIRE_SHARED(lock) : lock_(lock) { lock_.LockRead(); }
  ~ReadLock() ZO_RELEASE() { lock_.UnlockRead(); }
  ReadLock(const ReadLock&) = delete;
  ReadLock& operator=(const ReadLock&) = delete;

 private:
  SpinRWLock& lock_;
};

class [[nodiscard]] ZO_SCOPED_CAPABILITY WriteLock {
 public:
  explicit WriteLock(SpinRWLock& lock) ZO_ACQUIRE(lock) : lock_(lock) { lock_.LockWrite(); }
  ~WriteLock() ZO_RELEASE() { lock_.UnlockWrite(); }
  WriteLock(const WriteLock&) = delete;
  WriteLock& operator=(const WriteLock&) = delete;

 private:
  SpinRWLock& lock_;
};

}  // namespace zo_base
