#pragma once

namespace zo_tarvel {

// What can happen to a walk along a list of URLs.
enum class WalkEvent {
  kGoodAnswer,    // Of any URL.
  kStopAnswer,    // One after which other URLs can't help.
  kFailedAnswer,  // Another URL may help.
  kUrlTakesLong,  // The timer of a URL has run out; its sub request goes on.
};

// How the walk stands when it happens, the sub request that it happened to left out.
struct WalkStanding {
  bool urls_left = false;   // Some haven't been started.
  bool timer_runs = false;  // Some URL still has its head start before the next.
  bool others_in_flight = false;
};

enum class WalkMove {
  kWait,
  kStartNext,  // The next URL, beside those in flight.
  kEnd,        // The answer at hand is the result.
};

// The one place that decides.
constexpr WalkMove MoveAfter(WalkEvent event, const WalkStanding& standing) {
  switch (event) {
    case WalkEvent::kGoodAnswer:
    case WalkEvent::kStopAnswer:
      return WalkMove::kEnd;
    case WalkEvent::kUrlTakesLong:
      return standing.urls_left ? WalkMove::kStartNext : WalkMove::kWait;
    case WalkEvent::kFailedAnswer:
      if (standing.urls_left) {
        return standing.timer_runs ? WalkMove::kWait : WalkMove::kStartNext;
      }
      return standing.others_in_flight ? WalkMove::kWait : WalkMove::kEnd;
  }
  return WalkMove::kWait;
}

}  // namespace zo_tarvel
