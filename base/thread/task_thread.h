#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "base/lock/condition.h"
#include "base/lock/recursive_mutex.h"
#include "base/process/clock.h"
#include "base/thread/base_thread.h"
#include "base/thread/delayed_task_queue.h"
#include "base/thread/task_loop.h"
#include "base/thread/task_queue.h"

namespace zo_base {

// A named thread that runs tasks one at a time.
//
// Order: all priority tasks and all due delayed tasks run between any two normal tasks; idle tasks
// run, one per wake-up, when nothing else is left and no delayed task is due within 500 ms. First
// in, first out within a kind; delayed tasks by their time, then in order of posting. Without work
// the thread wakes once a second.
//
// Threads: post from any thread, also before Start and after the end; tasks run only on the thread
// itself. Normal and priority tasks run with no lock held. A delayed task runs under
// `delayed_lock`: other threads that post delayed tasks wait for it. An idle task runs under
// `wake_lock`: every other post waits for it. Both must therefore be short.
// A delayed task must not post a delayed task, nor an idle task any task, to a thread whose delayed
// or idle tasks post back: the locks would deadlock.
//
// Ownership: see BaseThread. Tasks still queued when the loop ends are never run; they are
// destroyed with this object. A task must not raise: nothing catches it.
class TaskThread : public BaseThread, public ITaskDelegate {
 public:
  explicit TaskThread(std::string name, SteadyClock& clock = SteadyClock::OfSystem());
  ~TaskThread() override;

  virtual std::shared_ptr<ITaskLoop> GetTaskLoop() { return task_loop; }
  void PostTask(Task task) override ZO_EXCLUDES(normal_lock);
  void PostLoopTask(std::int32_t delay_ms, Task task, std::int32_t times) override;
  void PostPriorityTask(Task task) override ZO_EXCLUDES(priority_lock);
  void PostDelayedTask(std::int32_t delay_ms, Task task) override;
  void PostIdleTask(Task task) override ZO_EXCLUDES(idle_lock);
  virtual void RunLoop();

  // Whether the loop is alive.
  bool IsReady() override { return ready.load(std::memory_order_acquire); }
  void OnThreadBegin() override;
  void OnFillThreadInfo(ThreadInfo& info) override { info.task_loop = task_loop; }
  void Run() override;
  std::shared_ptr<std::function<void()>> CreateStopClosure() override;

 private:
  class ThreadTaskLoop;
  static constexpr std::size_t kCacheLine = 64;

  // Each returns false when the thread is stopping. Priority tasks run first in all of them.
  bool RunTasks();
  bool RunPriorityTasks();
  bool RunNormalTask();
  bool RunUrgentTasks();
  bool RunDelayTasks();
  bool RunDelayedTask(DelayedTask& entry) ZO_REQUIRES(delayed_lock);
  void RunGuarded(const Task& task);

  // Bring what was posted to the thread's own side; false when there is nothing.
  bool TakePostedPriorityTasks() ZO_EXCLUDES(priority_lock);
  bool TakePostedTasks() ZO_EXCLUDES(normal_lock);

  bool MoreCameInAMoment();
  bool WaitForWork() ZO_EXCLUDES(wake_lock);  // Returns true when the wait timed out.
  bool WaitForWorkLocked() ZO_REQUIRES(wake_lock);
  bool RunOneIdleTask() ZO_REQUIRES(wake_lock) ZO_EXCLUDES(idle_lock);
  std::int64_t NextDelay() ZO_EXCLUDES(delayed_lock);
  bool HasDelayedTasks() ZO_EXCLUDES(delayed_lock);
  bool AllQueuesEmpty() ZO_EXCLUDES(priority_lock, normal_lock);

  // Entered with or without `delayed_lock`: a delayed task may post another.
  void PostDelayed(std::int32_t delay_ms, std::int64_t times, Task task);

  void WakeUp();
  void _DoStop();

  SteadyClock& clock;
  const std::shared_ptr<ITaskLoop> task_loop;

  std::atomic<bool> ready{false};
  std::atomic<bool> task_running{false};  // In a normal, priority or delayed task.

  // Order of locks: `wake_lock` before `delayed_lock`; `priority_lock` before `normal_lock`. A post
  // has released its queue's lock when it takes `wake_lock`.
  _thread_recursive_mutex wake_lock;
  _thread_recursive_mutex priority_lock;
  _thread_recursive_mutex delayed_lock ZO_ACQUIRED_AFTER(wake_lock);
  _thread_recursive_mutex idle_lock;
  // Posters meet here for every task: off the cache lines that the thread writes for every task.
  alignas(kCacheLine) _thread_recursive_mutex normal_lock ZO_ACQUIRED_AFTER(priority_lock);
  TaskQueue normal_incoming ZO_GUARDED_BY(normal_lock);

  // Not locked: touched only by the thread itself once it runs. Posters fill the incoming queues,
  // and the thread swaps them in whole, so a poster waits for a swap at most.
  alignas(kCacheLine) TaskQueue normal_work;
  TaskQueue priority_work;
  int normal_tasks_run = 0;                        // Since the last wait.
  std::shared_ptr<std::function<void()>> do_stop;  // What `stop_closure` of the base refers to.

  TaskQueue priority_incoming ZO_GUARDED_BY(priority_lock);
  DelayedTaskQueue delayed ZO_GUARDED_BY(delayed_lock);
  TaskQueue idle ZO_GUARDED_BY(idle_lock);

  // Summaries of the queues, written under their locks and read without: hints, since the thread
  // takes the lock before it touches a queue. It also takes those of all queues but the idle one
  // before it waits, so it misses no post; an idle task may be missed until the next wait. A poster
  // needn't wake a thread that isn't waiting.
  alignas(kCacheLine) std::atomic<bool> priority_posted{false};
  std::atomic<bool> normal_posted{false};
  std::atomic<bool> idle_posted{false};
  std::atomic<std::int64_t> earliest_delayed{DelayedTaskQueue::kNever};
  std::atomic<bool> waiting{false};  // The thread is in WaitForWork and nobody has woken it.

  Condition wake_condition;
};

}  // namespace zo_base
