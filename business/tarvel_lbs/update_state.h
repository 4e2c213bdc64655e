#pragma once

#include <cstdint>

#include "base/lock/recursive_mutex.h"

namespace zo_tarvel {

// How the updates of the LBS service stand.
enum class UpdateState {
  kBuilt,     // The service has not been started.
  kIdle,      // An unforced update may begin.
  kUpdating,  // One is in flight, and only a forced one may begin.
  kStuck,     // None is in flight, but still only a forced one may begin.
  kDetached,  // Answers don't count any more. Final.
};

enum class UpdateEvent {
  kInit,
  kBegin,
  kSettled,   // An update has ended: with its result, cancelled, or without an environment.
  kLeftOpen,  // An update has ended without a result: it had no URL, or the token has changed.
  kDetach,
};

// Returns the state that follows an event; no other code decides it. `others_in_flight` says
// whether an update other than the event's own is in flight.
constexpr UpdateState StateAfter(UpdateState state, UpdateEvent event, bool others_in_flight) {
  if (state == UpdateState::kDetached) return state;
  if (state == UpdateState::kBuilt && event != UpdateEvent::kInit) return state;
  switch (event) {
    case UpdateEvent::kInit:
    case UpdateEvent::kSettled:
      return UpdateState::kIdle;
    case UpdateEvent::kBegin:
      return UpdateState::kUpdating;
    case UpdateEvent::kLeftOpen:
      // Only a forced update settles this. A change of token brings one; the lack of a URL does
      // not.
      if (state == UpdateState::kIdle || others_in_flight) return state;
      return UpdateState::kStuck;
    case UpdateEvent::kDetach:
      return UpdateState::kDetached;
  }
  return state;
}

// The state of one service. Threads: any.
class UpdateProgress {
 public:
  UpdateState state() const {
    zo_base::MutexLock hold(lock_);
    return state_;
  }
  // Returns false, and changes nothing, for an update that may not begin.
  [[nodiscard]] bool Begin(bool force) {
    zo_base::MutexLock hold(lock_);
    const bool held_up = state_ == UpdateState::kUpdating || state_ == UpdateState::kStuck;
    if (held_up && !force) return false;
    state_ = StateAfter(state_, UpdateEvent::kBegin, in_flight_++ > 0);
    return true;
  }
  void On(UpdateEvent event) {
    zo_base::MutexLock hold(lock_);
    if (event == UpdateEvent::kSettled || event == UpdateEvent::kLeftOpen) --in_flight_;
    state_ = StateAfter(state_, event, in_flight_ > 0);
  }

 private:
  mutable zo_base::_thread_recursive_mutex lock_;
  UpdateState state_ ZO_GUARDED_BY(lock_) = UpdateState::kBuilt;
  std::int32_t in_flight_ ZO_GUARDED_BY(lock_) = 0;
};

}  // namespace zo_tarvel
