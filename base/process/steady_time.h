#pragma once

#include <chrono>
#include <cstdint>

namespace zo_base {

inline constexpr std::int64_t kMillisecondsPerSecond = 1'000;

// Whole milliseconds of the steady clock. All delays of the library count on this scale.
inline std::int64_t SteadyMilliseconds() {
  const auto since_epoch = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(since_epoch).count();
}

}  // namespace zo_base
