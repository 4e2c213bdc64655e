#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "base/lock/recursive_mutex.h"

namespace zo_base {

// The operating-system thread of a BaseThread. The object that started it, the thread itself and
// the list of unjoined threads share it, so that the last of them can join it.
//
// Threads: any.
class NativeThread {
 public:
  // Runs `body` on a new thread and destroys it there. The calling thread passes its own reference.
  // The new thread blocks all signals but those that its own instructions raise.
  // Raises std::system_error when the system gives no thread, and in a disabled forked child.
  static void Start(const std::shared_ptr<NativeThread>& thread, std::function<void()> body);

  // Waits for the end; returns true at once if it never started or was joined. Returns false
  // at once on the thread itself, and on a thread that this one waits for, directly or through
  // others.
  [[nodiscard]] bool Join();
  // The body has been run and destroyed, so a Join takes no time.
  bool finished() const { return finished_.load(std::memory_order_acquire); }

 private:
  // After a fork in the middle of an exit: the thread isn't here, nor can its handle be given back.
  // Takes no lock, since the thread that held it isn't here either.
  void AbandonInForkedChild() ZO_NO_THREAD_SAFETY_ANALYSIS;

  std::atomic<bool> finished_{false};  // Says that a join is short; the join makes writes visible.

  _thread_recursive_mutex lock_;  // Held while starting and joining.
  std::thread thread_ ZO_GUARDED_BY(lock_);
};

// Joins a thread later that its stopper can't join: one that was stopped by itself or by a thread
// for which it waits, or whose object is destroyed on it. A detached thread could still run when
// the library's image is unloaded.
//
// It is joined once it has finished: by one of the next calls, or at the end of the process or the
// unload, which wait for some seconds.
void JoinWhenFinished(const std::shared_ptr<NativeThread>& thread);

// Joins those that have finished.
void JoinFinishedThreads();

}  // namespace zo_base
