#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "base/lock/recursive_mutex.h"
#include "base/object/object.h"
#include "base/thread/task_loop.h"

namespace zo_base {

// A one-shot or repeating timer on a task loop. Starting it again or destroying it cancels what it
// has pending.
//
// Threads: any, also several at once; of two starts the later one counts. A task that is already
// running on another thread when the timer is cancelled runs to its end.
// Ownership: keeps neither the loop nor its thread alive; owns the task.
class Timer {
 public:
  explicit Timer(std::weak_ptr<ITaskLoop> task_loop) : task_loop(std::move(task_loop)) {}
  virtual ~Timer() { Stop(); }

  // Runs `task` after `delay_ms` on the timer's loop. If that loop is destroyed, the loop of the
  // calling thread runs it. Without either, nothing happens. `times` 0 is one shot, n gives n runs
  // `delay_ms` apart, a negative value repeats until cancelled.
  virtual void Start(std::int32_t delay_ms, Task task, std::int32_t times);
  // Cancels the pending task.
  void Stop();
  // Started and not stopped. A one-shot timer that has fired counts as running until it is stopped.
  bool IsRunning() const;

 private:
  std::shared_ptr<ITaskLoop> LoopToRunOn() const;
  Task NewGeneration(Task task);

  const std::weak_ptr<ITaskLoop> task_loop;
  // Not held while posting: a delayed task, which runs under its queue's lock, may use the timer.
  mutable _thread_recursive_mutex lock;
  WeakCallbackFlag weak_flag ZO_GUARDED_BY(lock);
};

}  // namespace zo_base
