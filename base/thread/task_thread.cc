#include "base/thread/task_thread.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/thread/library_call.h"

namespace zo_base {
namespace {

// How long an idle thread sleeps. An idle task doesn't wake it, so this bounds how late one runs.
constexpr std::int64_t kIdleWakeMs = 1000;
// An idle task never starts this close to the next delayed task, which it would make late.
constexpr std::int64_t kIdleTaskGapMs = 500;
// A thread that has just run this many normal tasks in a row gets them faster than it can sleep and
// wake. So it pauses for a moment and checks again, which saves both sides system calls and
// contention. A longer pause would delay a late task; a lower count would delay lone tasks.
constexpr int kStreamOfTasks = 16;
constexpr std::chrono::microseconds kGatheringPause{2};

}  // namespace

// Forwards to the thread for as long as it lives.
class TaskThread::ThreadTaskLoop final : public ITaskLoop {
 public:
  void AttachDelegate(std::shared_ptr<ITaskDelegate> delegate) override {
    ZO_ASSERT(!attached_);
    delegate_ = delegate;
    attached_.store(true, std::memory_order_release);
  }
  void PostTask(Task task) override {
    if (const auto thread = Living()) thread->PostTask(std::move(task));
  }
  void PostPriorityTask(Task task) override {
    if (const auto thread = Living()) thread->PostPriorityTask(std::move(task));
  }
  void PostDelayedTask(std::int32_t delay_ms, Task task) override {
    if (const auto thread = Living()) thread->PostDelayedTask(delay_ms, std::move(task));
  }
  void PostLoopTask(std::int32_t delay_ms, Task task, std::int32_t times) override {
    if (const auto thread = Living()) thread->PostLoopTask(delay_ms, std::move(task), times);
  }
  void PostIdleTask(Task task) override {
    if (const auto thread = Living()) thread->PostIdleTask(std::move(task));
  }

 private:
  [[gnu::noinline]] std::shared_ptr<ITaskDelegate> Living() const {
    return attached_.load(std::memory_order_acquire) ? delegate_.lock() : nullptr;
  }

  std::weak_ptr<ITaskDelegate> delegate_;  // Written once; posters read it when `attached_`.
  std::atomic<bool> attached_{false};      // Released after `delegate_` is written.
};

// Cold, and so kept small: a thread is made and destroyed once.
[[gnu::cold]] TaskThread::TaskThread(std::string name, SteadyClock& clock)
    : BaseThread(std::move(name)), clock(clock), task_loop(std::make_shared<ThreadTaskLoop>()) {
  // The first task of the loop, so that `ready` means that the loop has really started.
  priority_work.push_back([this] { ready.store(true, std::memory_order_release); });
}

[[gnu::cold]] TaskThread::~TaskThread() {
  StopAndJoin();
  do_stop.reset();
}

void TaskThread::OnThreadBegin() {
  task_loop->AttachDelegate(shared_from_this<ITaskDelegate>());
  BaseThread::OnThreadBegin();
}

void TaskThread::Run() {
  RunLoop();
  ready.store(false, std::memory_order_release);
}

std::shared_ptr<std::function<void()>> TaskThread::CreateStopClosure() {
  do_stop = std::make_shared<std::function<void()>>([this] { _DoStop(); });
  return do_stop;
}

void TaskThread::_DoStop() {
  WakeUp();
  TaskThread::PostTask([] {});
}

void TaskThread::PostTask(Task task) {
  {
    MutexLock lock(normal_lock);
    normal_incoming.push_back(std::move(task));
    // Read first: while it is set, posters only share its cache line. Relaxed, since all writes are
    // under this lock.
    if (!normal_posted.load(std::memory_order_relaxed)) {
      normal_posted.store(true, std::memory_order_release);
    }
  }
  WakeUp();
}

void TaskThread::PostPriorityTask(Task task) {
  {
    MutexLock lock(priority_lock);
    priority_incoming.push_back(std::move(task));
    priority_posted.store(true, std::memory_order_release);
  }
  WakeUp();
}

void TaskThread::PostDelayedTask(std::int32_t delay_ms, Task task) {
  PostDelayed(delay_ms, 0, std::move(task));
}

void TaskThread::PostLoopTask(std::int32_t delay_ms, Task task, std::int32_t times) {
  PostDelayed(delay_ms, times, std::move(task));
}

void TaskThread::PostIdleTask(Task task) {
  MutexLock lock(idle_lock);
  idle.push_back(std::move(task));
  idle_posted.store(true, std::memory_order_release);
}

void TaskThread::PostDelayed(std::int32_t delay_ms, std::int64_t times, Task task) {
  bool is_earliest = false;
  {
    MutexLock lock(delayed_lock);
    const std::int64_t earliest_before = delayed.earliest_run_at();
    delayed.Add(clock.Now(), delay_ms, times, std::move(task));
    const std::int64_t earliest = delayed.earliest_run_at();
    earliest_delayed.store(earliest, std::memory_order_release);
    is_earliest = earliest < earliest_before;
  }
  // A thread that waits for an earlier task anyway would only go back to its wait, unless the
  // wake-up gave it an idle task to run.
  if (is_earliest || idle_posted.load(std::memory_order_acquire)) WakeUp();
}

void TaskThread::WakeUp() {
  // The thread sets it before it takes the queues' locks for its last check. A post that this check
  // has missed took its queue's lock after the thread had, and so sees what was set before. The
  // order comes from these locks alone.
  if (!waiting.load(std::memory_order_acquire)) return;
  MutexLock lock(wake_lock);
  // One wake-up is enough for all posts until the thread waits again.
  if (waiting.exchange(false, std::memory_order_acq_rel)) wake_condition.NotifyAll();
}

void TaskThread::RunLoop() {
  bool timed_out = false;
  while (!stopping_requested()) {
    if (!timed_out && !RunTasks()) return;
    if (!RunDelayTasks() || !RunTasks()) return;
    timed_out = WaitForWork();
  }
}

void TaskThread::RunGuarded(const Task& task) {
  AssertOnThread();
  const LibraryCall call;
  task_running.store(true, std::memory_order_release);
  task();
  task_running.store(false, std::memory_order_release);
}

// Runs what precedes the next normal task: seldom anything, so it is inline in the loop.
inline bool TaskThread::RunUrgentTasks() {
  if (priority_work.empty() && !priority_posted.load(std::memory_order_acquire) &&
      earliest_delayed.load(std::memory_order_acquire) == DelayedTaskQueue::kNever) {
    return true;
  }
  return RunPriorityTasks() && RunDelayTasks();
}

bool TaskThread::RunTasks() {
  AssertOnThread();
  do {
    // A due delayed task comes before the normal tasks that were posted after it.
    if (!RunDelayTasks()) return false;
    while (!normal_work.empty()) {
      if (!RunNormalTask() || !RunUrgentTasks()) return false;
    }
  } while (TakePostedTasks());
  return true;
}

bool TaskThread::RunNormalTask() {
  // The task stays in its queue while it runs, at its place whatever it posts.
  RunGuarded(normal_work.front());
  ++normal_tasks_run;
  if (stopping_requested()) return false;
  if (!normal_work.empty()) normal_work.pop_front();
  return !stopping_requested();
}

bool TaskThread::RunPriorityTasks() {
  AssertOnThread();
  do {
    if (stopping_requested()) return false;
    while (!priority_work.empty()) {
      RunGuarded(priority_work.front());
      if (stopping_requested()) return false;
      priority_work.pop_front();
      if (stopping_requested()) return false;
    }
  } while (TakePostedPriorityTasks());
  return true;
}

bool TaskThread::TakePostedPriorityTasks() {
  if (!priority_posted.load(std::memory_order_acquire)) return false;
  MutexLock lock(priority_lock);
  priority_posted.store(false, std::memory_order_release);
  priority_work.swap(priority_incoming);
  return !priority_work.empty();
}

bool TaskThread::TakePostedTasks() {
  if (!normal_posted.load(std::memory_order_acquire)) return false;
  MutexLock lock(normal_lock);
  normal_posted.store(false, std::memory_order_release);
  normal_work.swap(normal_incoming);
  return !normal_work.empty();
}

bool TaskThread::RunDelayTasks() {
  if (!RunPriorityTasks()) return false;
  const std::int64_t earliest = earliest_delayed.load(std::memory_order_acquire);
  if (earliest == DelayedTaskQueue::kNever || clock.Now() < earliest) return true;

  const LibraryCall call;  // The tasks run under the lock.
  MutexLock lock(delayed_lock);
  const auto now = [this] { return clock.Now(); };
  const bool walked_to_the_end = delayed.RunDue(now, [this](DelayedTask& entry) {
    delayed_lock.AssertHeld();
    return !stopping_requested() && RunDelayedTask(entry);
  });
  earliest_delayed.store(delayed.earliest_run_at(), std::memory_order_release);
  return walked_to_the_end && !stopping_requested();
}

bool TaskThread::RunDelayedTask(DelayedTask& entry) {
  // Moved out: a task that posts into this group may move the list that `entry` is in.
  const Task task = std::move(entry.task);
  if (entry.times > 1) PostDelayed(entry.delay_ms, entry.times - 1, task);
  RunGuarded(task);
  return true;
}

bool TaskThread::MoreCameInAMoment() {
  if (std::exchange(normal_tasks_run, 0) < kStreamOfTasks) return false;
  const auto end = std::chrono::steady_clock::now() + kGatheringPause;
  while (std::chrono::steady_clock::now() < end) {
  }
  return normal_posted.load(std::memory_order_acquire) ||
         priority_posted.load(std::memory_order_acquire);
}

bool TaskThread::WaitForWork() {
  AssertOnThread();
  if (MoreCameInAMoment()) return false;
  const LibraryCall call;  // Idle tasks run under the lock.
  MutexLock lock(wake_lock);
  waiting.store(true, std::memory_order_release);
  const bool timed_out = WaitForWorkLocked();
  waiting.store(false, std::memory_order_release);
  return timed_out;
}

bool TaskThread::WaitForWorkLocked() {
  // Read before the delay: should the clock move in between, the wait ends early and never late.
  std::int64_t now = clock.Now();
  const std::int64_t delay = NextDelay();
  if (delay > kIdleTaskGapMs && (RunOneIdleTask() || stopping_requested())) return false;

  while (AllQueuesEmpty()) {
    if (clock.WaitUntil(wake_condition, wake_lock, now + delay)) return true;
    // The wake-up may be late, for a task that has run already. Set before the check of the queues:
    // a later post must wake this thread again.
    waiting.store(true, std::memory_order_release);
    if (HasDelayedTasks()) return false;
    now = clock.Now();
  }
  return false;
}

bool TaskThread::RunOneIdleTask() {
  if (stopping_requested() || !idle_posted.load(std::memory_order_acquire)) return false;
  Task task;
  {
    MutexLock lock(idle_lock);
    if (idle.empty()) return false;
    task = std::move(idle.front());
    idle.pop_front();
    idle_posted.store(!idle.empty(), std::memory_order_release);
  }
  if (stopping_requested()) return false;
  task();
  return true;
}

std::int64_t TaskThread::NextDelay() {
  MutexLock lock(delayed_lock);
  if (delayed.empty()) return kIdleWakeMs;
  return std::max<std::int64_t>(delayed.earliest_run_at() - clock.Now(), 0);
}

bool TaskThread::HasDelayedTasks() {
  MutexLock lock(delayed_lock);
  return !delayed.empty();
}

bool TaskThread::AllQueuesEmpty() {
  AssertOnThread();
  if (stopping_requested()) return false;
  MutexLock lock(priority_lock);
  MutexLock normal(normal_lock);
  return normal_incoming.empty() && priority_incoming.empty() && normal_work.empty() &&
         priority_work.empty();
}

}  // namespace zo_base
