#pragma once

#include <algorithm>
#include <cstdint>

namespace zo_tarvel {

// The two time-outs of a request over several URLs, in milliseconds.
struct RequestTimeouts {
  std::int32_t timeout = 7'000;          // Of one sub request.
  std::int32_t prefail_timeout = 2'000;  // Then the next URL is started in parallel.
};

// Brings both into their limits: 1 s to 30 s, and 200 ms to shortly before the time-out.
inline RequestTimeouts CleanTimeouts(RequestTimeouts timeouts) {
  constexpr std::int32_t kShortest = 1'000;
  constexpr std::int32_t kLongest = 30'000;
  constexpr std::int32_t kShortestPrefail = 200;
  constexpr std::int32_t kPrefailMargin = 80;
  timeouts.timeout = std::clamp(timeouts.timeout, kShortest, kLongest);
  timeouts.prefail_timeout = std::max(timeouts.prefail_timeout, kShortestPrefail);
  if (timeouts.prefail_timeout >= timeouts.timeout) {
    timeouts.prefail_timeout = timeouts.timeout - kPrefailMargin;
  }
  return timeouts;
}

}  // namespace zo_tarvel
