#pragma once

#include <tarvel/tarvel.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <optional>

#include "base/lock/recursive_mutex.h"

namespace zo_tarvel {

struct EnvironmentManagerStorage;

// One call of ExitTarvelEnvironment.
struct ExitRequest {
  std::int32_t id = 0;
  bool ends_process = false;  // This one is the last, however many starts are outstanding.
};

// Lets starts and exits in one at a time, and decides which thread carries an exit out.
//
// The thread inside may be joining a thread of the library, or calling back into the client out of
// an exit. There nobody may wait for it: a start returns 0, and an exit is queued for the thread
// inside.
// Threads: any. Ownership: part of the storage, whose `start_lock` it takes.
class EnvironmentGate {
 public:
  explicit EnvironmentGate(EnvironmentManagerStorage& storage);

  // Starts the environment or counts one more start. Returns the id of its object, or 0 where the
  // caller may not wait for an exit, and in a forked child.
  [[nodiscard]] int Start(const _ZOTarvelEnvironmentSettings& settings);
  // When this returns, the exit has been carried out or the thread inside will do it.
  void Exit(const ExitRequest& request);
  bool exit_in_progress() const { return exit_in_progress_; }

 private:
  [[nodiscard]] bool LockForStart() ZO_TRY_ACQUIRE(true, start_lock_);
  void CarryOutQueue() ZO_REQUIRES(start_lock_);
  void CarryOutQueueIfUnlocked() ZO_EXCLUDES(exits_lock_);
  void Queue(const ExitRequest& request) ZO_EXCLUDES(exits_lock_);
  // Both find nothing in a forked child, where another thread may have held the lock.
  std::optional<ExitRequest> TakeQueued() ZO_EXCLUDES(exits_lock_);
  bool HasQueued() ZO_EXCLUDES(exits_lock_);

  EnvironmentManagerStorage& storage_;
  zo_base::_thread_recursive_mutex& start_lock_;
  std::atomic<bool> exit_in_progress_{false};  // Written by the holder of `start_lock_`.
  zo_base::_thread_recursive_mutex exits_lock_;
  std::deque<ExitRequest> exits_ ZO_GUARDED_BY(exits_lock_);
};

}  // namespace zo_tarvel
