#pragma once

#include <pthread.h>

#include <cstdint>

#include "base/lock/recursive_mutex.h"

namespace zo_base {

// A condition variable for `_thread_recursive_mutex`.
//
// Waits use the steady clock, so a jump of the wall clock doesn't affect them.
// Threads: any. The waiting thread must hold the mutex exactly once: the wait releases a single
// level of a recursive lock.
class Condition {
 public:
  Condition() noexcept;
  ~Condition();
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  void NotifyAll() noexcept;

  // Waits for a notification until `steady_ms` (see SteadyMilliseconds). Returns true on time-out.
  // May also wake without either, so the caller checks its state again.
  bool WaitUntil(_thread_recursive_mutex& mutex, std::int64_t steady_ms) noexcept
      ZO_REQUIRES(mutex);

 private:
  pthread_cond_t condition_;
};

}  // namespace zo_base
