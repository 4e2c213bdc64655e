#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "base/lock/recursive_mutex.h"

namespace zo_base {

// The operating-system thread of a BaseThread. The object that started it, the thread itself and
// the list of ended threads share it, so that it can be joined whoever of them is left.
//
// Threads: any.
class NativeThread {
 public:
  // Runs `body` on a new thread and destroys it there. The calling thread passes its own reference.
  // The new thread blocks all signals but those that its own instructions raise.
  // Raises std::system_error when the system gives no thread, and in a dead forked child.
  static void Start(const std::shared_ptr<NativeThread>& thread, std::function<void()> body);

  // Waits for the end; true at once when it never started or was joined before. False, without
  // waiting, where that would never end: on the thread itself, and on a thread that it waits for
  // itself, directly or through others.
  [[nodiscard]] bool Join();
  // The body has been run and destroyed, so that a Join takes no time.
  bool finished() const { return finished_.load(std::memory_order_acquire); }

 private:
  // After a fork in the middle of an exit: the thread isn't here, nor can its handle be given back.
  // Takes no lock, since the thread that held it isn't here either.
  void AbandonInForkedChild() ZO_NO_THREAD_SAFETY_ANALYSIS;

  std::atomic<bool> finished_{false};

  _thread_recursive_mutex lock_;  // Held while starting and joining.
  std::thread thread_ ZO_GUARDED_BY(lock_);
};

// Sees to the end of a thread that nobody can join: one that was stopped by itself or by a thread
// that it waits for, or whose object ends on it. Detached, it could still be on its way out when
// the library's image is unloaded.
//
// It is joined when it has finished, by one of the next calls or when the process exits or unloads
// the image, which waits for it for some seconds.
void JoinWhenFinished(const std::shared_ptr<NativeThread>& thread);

// Joins those that have finished.
void JoinFinishedThreads();

}  // namespace zo_base
