#include "base/lock/condition.h"

#include <cerrno>
#include <ctime>

namespace zo_base {

Condition::Condition() noexcept {
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(&condition_, &attributes);
  pthread_condattr_destroy(&attributes);
}

Condition::~Condition() { pthread_cond_destroy(&condition_); }

void Condition::NotifyAll() noexcept { pthread_cond_broadcast(&condition_); }

bool Condition::WaitUntil(_thread_recursive_mutex& mutex, std::int64_t steady_ms) noexcept {
  mutex.AssertHeld();
  const timespec until{.tv_sec = static_cast<std::time_t>(steady_ms / 1000),
                       .tv_nsec = static_cast<long>(steady_ms % 1000) * 1'000'000L};
  const int result = pthread_cond_timedwait(&condition_, &mutex.mutex_, &until);
  mutex.owner_.store(pthread_self(), std::memory_order_relaxed);
  return result == ETIMEDOUT;
}

}  // namespace zo_base
