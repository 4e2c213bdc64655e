#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <vector>

#include "base/process/clock.h"

namespace test_support {

// A steady clock that stands until it is told to move.
//
// Threads: any. Who sleeps by it outlives each call of Advance.
class ManualClock final : public zo_base::SteadyClock {
 public:
  std::int64_t Now() const override { return now_; }

  // Moves the time and wakes all who sleep.
  void Advance(std::int64_t milliseconds) {
    now_ += milliseconds;
    for (const Sleeper& sleeper : Sleepers()) {
      // Under its mutex, so that none is between its look at the time and its wait.
      const zo_base::MutexLock lock(*sleeper.mutex);
      sleeper.condition->NotifyAll();
    }
  }

  bool WaitUntil(zo_base::Condition& condition, zo_base::_thread_recursive_mutex& mutex,
                 std::int64_t until_ms) override ZO_REQUIRES(mutex) {
    constexpr std::int64_t kLongerThanAnyTest = 600'000;
    const Sleeper self{&condition, &mutex};
    {
      const zo_base::MutexLock lock(lock_);
      sleepers_.push_back(self);
    }
    if (now_ < until_ms) {
      condition.WaitUntil(mutex, zo_base::SteadyMilliseconds() + kLongerThanAnyTest);
    }
    const zo_base::MutexLock lock(lock_);
    sleepers_.erase(std::find(sleepers_.begin(), sleepers_.end(), self));
    return now_ >= until_ms;
  }

 private:
  struct Sleeper {
    zo_base::Condition* condition;
    zo_base::_thread_recursive_mutex* mutex;
    bool operator==(const Sleeper&) const = default;
  };

  std::vector<Sleeper> Sleepers() {
    const zo_base::MutexLock lock(lock_);
    return sleepers_;
  }

  std::atomic<std::int64_t> now_{0};
  zo_base::_thread_recursive_mutex lock_;
  std::vector<Sleeper> sleepers_ ZO_GUARDED_BY(lock_);
};

}  // namespace test_support
