#pragma once

#include <pthread.h>

#include <atomic>

#include "base/lock/assert.h"

namespace zo_base {

// Asserts that its owner is used on one thread only: the one of the first check.
//
// Threads: any.
class ThreadChecker {
 public:
  ThreadChecker() {}  // Not defaulted: owners have it as a const member.
  void AssertSameThread() const { ZO_ASSERT(IsSameThread()); }

 private:
  bool IsSameThread() const {
    pthread_t first{};
    const pthread_t current = pthread_self();
    return first_.compare_exchange_strong(first, current) || pthread_equal(first, current);
  }

  mutable std::atomic<pthread_t> first_{};  // Zero until the first check.
};

}  // namespace zo_base
