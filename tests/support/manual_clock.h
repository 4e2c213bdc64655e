#pragma once

#include <atomic>
#include <cstdint>

#include "base/process/clock.h"

namespace test_support {

// A steady clock that stands until it is told to move. Who sleeps by it looks every millisecond.
//
// Threads: any.
class ManualClock final : public zo_base::SteadyClock {
 public:
  std::int64_t Now() const override { return now_; }

  void Advance(std::int64_t milliseconds) { now_ += milliseconds; }

  bool WaitUntil(zo_base::Condition& condition, zo_base::_thread_recursive_mutex& mutex,
                 std::int64_t until_ms) override ZO_REQUIRES(mutex) {
    condition.WaitUntil(mutex, zo_base::SteadyMilliseconds() + 1);
    return now_ >= until_ms;
  }

 private:
  std::atomic<std::int64_t> now_{0};
};

}  // namespace test_support
