#include "base/task_thread.h"

#include <algorithm>
#include <utility>

#include "base/steady_time.h"

namespace zo_base {
namespace {

// How long an idle thread sleeps: idle tasks wake nobody, so this bounds how late they run.
constexpr std::int64_t kIdleWakeMs = 1000;
// An idle task never starts this close to the next delayed task, which it would make late.
constexpr std::int64_t kIdleTaskGapMs = 500;

}  // namespace

// Forwards to the thread for as long as it lives.
class TaskThread::ThreadTaskLoop final : public ITaskLoop {
 public:
  void AttachDelegate(std::shared_ptr<ITaskDelegate> delegate) override {
    MutexLock lock(lock_);
    delegate_ = delegate;
  }
  void PostTask(Task task) override {
    if (const auto thread = Delegate()) thread->PostTask(std::move(task));
  }
  void PostPriorityTask(Task task) override {
    if (const auto thread = Delegate()) thread->PostPriorityTask(std::move(task));
  }
  void PostDelayedTask(std::int32_t delay_ms, Task task) override {
    if (const auto thread = Delegate()) thread->PostDelayedTask(delay_ms, std::move(task));
  }
  void PostLoopTask(std::int32_t delay_ms, Task task, std::int32_t times) override {
    if (const auto thread = Delegate()) thread->PostLoopTask(delay_ms, std::move(task), times);
  }
  void PostIdleTask(Task task) override {
    if (const auto thread = Delegate()) thread->PostIdleTask(std::move(task));
  }

 private:
  std::shared_ptr<ITaskDelegate> Delegate() {
    MutexLock lock(lock_);
    return delegate_.lock();
  }

  _thread_recursive_mutex lock_;
  std::weak_ptr<ITaskDelegate> delegate_ ZO_GUARDED_BY(lock_);
};

TaskThread::TaskThread(std::string name)
    : BaseThread(std::move(name)), task_loop(std::make_shared<ThreadTaskLoop>()) {
  // The first task of the loop, so that `ready` means that the loop has really started.
  priority_work.push_back([this] { ready.store(true, std::memory_order_release); });
}

TaskThread::~TaskThread() {
  StopAndJoin();
  do_stop.reset();
}

std::shared_ptr<ITaskLoop> TaskThread::GetTaskLoop() { return task_loop; }

bool TaskThread::IsReady() { return ready.load(std::memory_order_acquire); }

void TaskThread::OnThreadBegin() {
  task_loop->AttachDelegate(shared_from_this<ITaskDelegate>());
  BaseThread::OnThreadBegin();
}

void TaskThread::OnFillThreadInfo(ThreadInfo& info) { info.task_loop = task_loop; }

void TaskThread::Run() {
  RunLoop();
  ready.store(false, std::memory_order_release);
}

std::shared_ptr<std::function<void()>> TaskThread::CreateStopClosure() {
  do_stop = std::make_shared<std::function<void()>>([this] { _DoStop(); });
  return do_stop;
}

void TaskThread::_DoStop() {
  WakeUp(Wake::kAll);
  TaskThread::PostTask([] {});
}

void TaskThread::PostTask(Task task) {
  {
    MutexLock lock(normal_lock);
    normal_incoming.push_back(std::move(task));
  }
  WakeUp(Wake::kOne);
}

void TaskThread::PostPriorityTask(Task task) {
  {
    MutexLock lock(priority_lock);
    priority_incoming.push_back(std::move(task));
    priority_posted.store(true, std::memory_order_release);
  }
  WakeUp(Wake::kOne);
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
}

void TaskThread::PostDelayed(std::int32_t delay_ms, std::int64_t times, Task task) {
  {
    MutexLock lock(delayed_lock);
    delayed.Add(SteadyMilliseconds(), delay_ms, times, std::move(task));
    earliest_delayed.store(delayed.earliest_run_at(), std::memory_order_release);
  }
  WakeUp(Wake::kAll);
}

void TaskThread::WakeUp(Wake whom) {
  // Set before the thread's last look at the queues, so a post that comes too late for that look
  // sees it. See WaitForWork.
  if (!waiting.load(std::memory_order_acquire)) return;
  MutexLock lock(wake_lock);
  // One wake-up is enough for all posts until the thread waits again.
  if (!waiting.exchange(false, std::memory_order_acq_rel)) return;
  if (whom == Wake::kAll) {
    wake_condition.NotifyAll();
  } else {
    wake_condition.NotifyOne();
  }
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
  task_running.store(true, std::memory_order_release);
  task();
  task_running.store(false, std::memory_order_release);
}

bool TaskThread::RunTasks() {
  do {
    // A due delayed task comes before the normal tasks that were posted after it.
    if (!RunDelayTasks()) return false;
    while (!normal_work.empty()) {
      if (!RunNormalTask() || !RunDelayTasks()) return false;
    }
  } while (TakePostedTasks());
  return true;
}

bool TaskThread::RunNormalTask() {
  // The task stays in its queue while it runs: deque references survive what it posts.
  RunGuarded(normal_work.front());
  if (stopping_requested()) return false;
  if (!normal_work.empty()) normal_work.pop_front();
  return !stopping_requested();
}

bool TaskThread::RunPriorityTasks() {
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
  MutexLock lock(normal_lock);
  normal_work.swap(normal_incoming);
  return !normal_work.empty();
}

bool TaskThread::RunDelayTasks() {
  if (!RunPriorityTasks()) return false;
  const std::int64_t earliest = earliest_delayed.load(std::memory_order_acquire);
  if (earliest == DelayedTaskQueue::kNever || SteadyMilliseconds() < earliest) return true;

  MutexLock lock(delayed_lock);
  const bool walked_to_the_end =
      delayed.RunDue(SteadyMilliseconds, [this](DelayedTask& entry) ZO_NO_THREAD_SAFETY_ANALYSIS {
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

bool TaskThread::WaitForWork() {
  MutexLock lock(wake_lock);
  waiting.store(true, std::memory_order_release);
  const bool timed_out = WaitForWorkLocked();
  waiting.store(false, std::memory_order_release);
  return timed_out;
}

bool TaskThread::WaitForWorkLocked() {
  std::int64_t delay = NextDelay();
  const std::int64_t begun = SteadyMilliseconds();
  if (delay > kIdleTaskGapMs && (RunOneIdleTask() || stopping_requested())) return false;
  delay -= SteadyMilliseconds() - begun;
  if (delay < 0) delay = NextDelay();

  while (AllQueuesEmpty()) {
    if (wake_condition.WaitUntil(wake_lock, SteadyMilliseconds() + delay)) return true;
    // That wake-up may have come late, for a task long since run. Whoever posts from here on must
    // wake this thread anew, so this stands before the look at the queues.
    waiting.store(true, std::memory_order_release);
    if (HasDelayedTasks()) return false;
  }
  return false;
}

bool TaskThread::RunOneIdleTask() {
  if (stopping_requested()) return false;
  Task task;
  {
    MutexLock lock(idle_lock);
    if (idle.empty()) return false;
    task = std::move(idle.front());
    idle.pop_front();
  }
  if (stopping_requested()) return false;
  task();
  return true;
}

std::int64_t TaskThread::NextDelay() {
  MutexLock lock(delayed_lock);
  if (delayed.empty()) return kIdleWakeMs;
  return std::max<std::int64_t>(delayed.earliest_run_at() - SteadyMilliseconds(), 0);
}

bool TaskThread::HasDelayedTasks() {
  MutexLock lock(delayed_lock);
  return !delayed.empty();
}

bool TaskThread::AllQueuesEmpty() {
  if (stopping_requested()) return false;
  MutexLock lock(priority_lock);
  MutexLock normal(normal_lock);
  return normal_incoming.empty() && priority_incoming.empty() && normal_work.empty() &&
         priority_work.empty();
}

}  // namespace zo_base
