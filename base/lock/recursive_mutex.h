#pragma once

#include <pthread.h>

#include <atomic>

#include "base/lock/assert.h"
#include "base/lock/thread_annotations.h"

namespace zo_base {

// The lock used throughout: recursive, and it remembers who took it last. It is held for short
// times, so a thread that finds it taken spins for some microseconds before it sleeps.
//
// Threads: any. It may be destroyed while another thread holds it: the native mutex is then
// abandoned.
class ZO_CAPABILITY("mutex") _thread_recursive_mutex {
 public:
  _thread_recursive_mutex() noexcept;
  ~_thread_recursive_mutex();

  void lock() noexcept ZO_ACQUIRE() {
    if (pthread_mutex_trylock(&mutex_) != 0) LockTaken();
    owner_.store(pthread_self(), std::memory_order_relaxed);
  }
  [[nodiscard]] bool try_lock() noexcept ZO_TRY_ACQUIRE(true) {
    if (pthread_mutex_trylock(&mutex_) != 0) return false;
    owner_.store(pthread_self(), std::memory_order_relaxed);
    return true;
  }
  void unlock() noexcept ZO_RELEASE() { pthread_mutex_unlock(&mutex_); }

  // For code that is called under the lock where the analysis can't see it.
  void AssertHeld() const noexcept ZO_ASSERT_CAPABILITY(this) {
    ZO_ASSERT(pthread_equal(owner(), pthread_self()));
  }

  // The last thread that took the lock. Not cleared on unlock; zero before the first lock.
  pthread_t owner() const noexcept { return owner_.load(std::memory_order_relaxed); }

 private:
  friend class Condition;

  void LockTaken() noexcept;

  // Relaxed: a thread only asks whether it is the owner itself, and its own store is enough for
  // that.
  std::atomic<pthread_t> owner_{};
  pthread_mutex_t mutex_;
};

// Holds the lock for the length of a scope.
class [[nodiscard]] ZO_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(_thread_recursive_mutex& mutex) ZO_ACQUIRE(mutex) : mutex_(mutex) {
    mutex_.lock();
  }
  ~MutexLock() ZO_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  _thread_recursive_mutex& mutex_;
};

}  // namespace zo_base
