#pragma once

#include <chrono>
#include <cstdint>

#include "base/lock/condition.h"

namespace zo_base {

inline constexpr std::int64_t kMillisecondsPerSecond = 1'000;

// Whole milliseconds of the steady clock. All delays of the library count on this scale.
inline std::int64_t SteadyMilliseconds() {
  const auto since_epoch = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(since_epoch).count();
}

// The steady clock that a task thread times its tasks and its sleep by. This is the system's; a
// test may derive one that moves only when told.
//
// Threads: any. Ownership: outlives the threads that use it.
class SteadyClock {
 public:
  virtual std::int64_t Now() const { return SteadyMilliseconds(); }

  // Waits for a notification of `condition`, or until `Now` is `until_ms`. Returns true when that
  // time has come. May also wake without either.
  virtual bool WaitUntil(Condition& condition, _thread_recursive_mutex& mutex,
                         std::int64_t until_ms) ZO_REQUIRES(mutex) {
    return condition.WaitUntil(mutex, until_ms);
  }

  static SteadyClock& OfSystem() {
    static constinit SteadyClock clock;
    return clock;
  }
};

// A source of the time of day, in milliseconds since 1970. It may jump in both directions: only
// what outlives the process is timed by it.
using WallClock = std::int64_t (*)();

inline std::int64_t WallClockMilliseconds() {
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(since_epoch).count();
}

}  // namespace zo_base
