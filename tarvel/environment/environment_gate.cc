#include "tarvel/environment/environment_gate.h"

#include <chrono>
#include <thread>

#include "base/process/forked_child.h"
#include "base/thread/thread_info.h"
#include "tarvel/environment/environment_manager.h"

namespace zo_tarvel {
namespace {

using zo_base::MutexLock;

// How often a thread of the library that waits for a start checks whether an exit has begun.
constexpr std::chrono::milliseconds kStartLockPoll{1};

}  // namespace

EnvironmentGate::EnvironmentGate(EnvironmentManagerStorage& storage)
    : storage_(storage), start_lock_(storage.start_lock) {}

int EnvironmentGate::Start(const _ZOTarvelEnvironmentSettings& settings) {
  if (!LockForStart()) return 0;
  CarryOutQueue();  // These exits were requested before this start.
  // In a child that the log function has forked in one of them, nothing is left to start.
  const bool is_child = zo_base::InForkedChild();
  const int id = is_child ? 0 : EnvironmentManager(storage_).StartOrCount(settings);
  start_lock_.unlock();
  CarryOutQueueIfUnlocked();
  return zo_base::InForkedChild() ? 0 : id;  // A log function may have forked.
}

void EnvironmentGate::Exit(const ExitRequest& request) {
  if (zo_base::OnLibraryThread()) {
    Queue(request);
  } else {
    MutexLock lock(start_lock_);
    Queue(request);
    CarryOutQueue();
  }
  CarryOutQueueIfUnlocked();
}

bool EnvironmentGate::LockForStart() {
  if (!zo_base::OnLibraryThread()) {
    start_lock_.lock();
  } else {
    while (!start_lock_.try_lock()) {
      if (exit_in_progress_) return false;
      std::this_thread::sleep_for(kStartLockPoll);
    }
  }
  if (!exit_in_progress_) return true;
  start_lock_.unlock();  // A callback out of an exit on this same thread.
  return false;
}

void EnvironmentGate::CarryOutQueue() {
  if (exit_in_progress_) return;  // On this same thread: the outer call goes on with the queue.
  while (const auto request = TakeQueued()) {
    if (!storage_.started) continue;
    exit_in_progress_ = true;
    EnvironmentManager(storage_).ExitEnvironment(*request);
    exit_in_progress_ = false;
  }
}

// A thread of the library may have queued an exit just before the caller released the start lock.
// The check comes after the release: either it finds the exit, or the queueing thread, which took
// `exits_lock_` later, finds the start lock free.
void EnvironmentGate::CarryOutQueueIfUnlocked() {
  while (!exit_in_progress_ && HasQueued() && start_lock_.try_lock()) {
    CarryOutQueue();
    start_lock_.unlock();
  }
}

void EnvironmentGate::Queue(const ExitRequest& request) {
  MutexLock lock(exits_lock_);
  exits_.push_back(request);
}

std::optional<ExitRequest> EnvironmentGate::TakeQueued() {
  if (!HasQueued()) return std::nullopt;
  MutexLock lock(exits_lock_);
  const ExitRequest next = exits_.front();
  exits_.pop_front();
  return next;
}

bool EnvironmentGate::HasQueued() {
  if (zo_base::InForkedChild()) return false;
  MutexLock lock(exits_lock_);
  return !exits_.empty();
}

}  // namespace zo_tarvel
