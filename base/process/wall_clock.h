#pragma once

#include <chrono>
#include <cstdint>

namespace zo_base {

// A source of the time of day, in milliseconds since 1970. It may jump in both directions: only
// what outlives the process is timed by it.
using WallClock = std::int64_t (*)();

// The system's.
inline std::int64_t WallClockMilliseconds() {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  return duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace zo_base
