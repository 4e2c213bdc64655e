#pragma once

#include <chrono>
#include <cstdint>

namespace zo_tarvel {

// Milliseconds since 1970.
inline std::int64_t WallClockMilliseconds() {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  return duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace zo_tarvel
