#pragma once

#include <atomic>
#include <utility>

#include "base/lock/recursive_mutex.h"

namespace zo_base {

// Like std::call_once, but can be reset so that the function runs again.
//
// Threads: any. A caller waits for a function that runs on another thread. A call from within the
// function does nothing. A function that raises hasn't run.
class ResettableOnce {
 public:
  template <class F>
  void Call(F&& function) {
    // Pairs with the release below: who returns here sees all that the function has written.
    if (done_.load(std::memory_order_acquire)) return;
    MutexLock lock(lock_);
    if (entered_) return;
    entered_ = true;
    try {
      std::forward<F>(function)();
    } catch (...) {
      entered_ = false;
      throw;
    }
    done_.store(true, std::memory_order_release);
  }

  // The next Call runs its function again. Must not race with a Call that should still count.
  void Reset() {
    MutexLock lock(lock_);
    entered_ = false;
    done_.store(false, std::memory_order_release);
  }

 private:
  std::atomic<bool> done_{false};
  _thread_recursive_mutex lock_;
  bool entered_ ZO_GUARDED_BY(lock_) = false;
};

}  // namespace zo_base
