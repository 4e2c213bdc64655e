#include "business/tarvel_lbs/count_timer_invoker.h"

#include "base/log/log.h"
#include "base/object/weakly.h"
#include "base/text/strings.h"

namespace zo_tarvel {

using zo_base::MutexLock;
using zo_base::Task;
using zo_base::TaskThread;
using zo_base::TrueOrFalse;

CountTimerInvoker::CountTimerInvoker(std::int32_t times, std::int32_t time_ms,
                                     const std::shared_ptr<TaskThread>& thread)
    : times(times), time_ms(time_ms), thread(thread), timer(thread->GetTaskLoop()) {}

void CountTimerInvoker::Stop() {
  stopped.store(true);
  timer.Stop();
}

void CountTimerInvoker::Invoke(const Task& requested, bool immediately) {
  ZO_LOG << "[count timer invoker] call Invoke immediately:" << TrueOrFalse(immediately);
  if (stopped) return;
  if (immediately) {
    InvokeNow(requested);
  } else {
    Gather(requested);
  }
}

void CountTimerInvoker::InvokeNow(const Task& requested) {
  timer.Stop();
  const auto living = thread.lock();
  if (living == nullptr || !living->IsRunning() || living->IsStopping()) return;
  count.store(0);
  ZO_LOG << "[count timer invoker] Invoke immediately";
  requested();
}

void CountTimerInvoker::Gather(const Task& requested) {
  {
    MutexLock hold(task_lock);
    task = requested;
  }
  // Count before starting the timer: a race may leave one superfluous timer, but never a counted
  // request without one.
  const std::int32_t before = count.fetch_add(1);
  if (before == 0) {
    const auto on_time_out = [](CountTimerInvoker& self) { self.OnTimeOut(); };
    timer.Start(time_ms, zo_base::Weakly(shared_from_this(), on_time_out), 0);
  }
  if (before + 1 < times) return;
  ZO_LOG << "[count timer invoker][times] Invoke task";
  Invoke(requested, true);
}

void CountTimerInvoker::OnTimeOut() {
  ZO_LOG << "[count timer invoker][time out] Invoke task";
  // Read the task only after InvokeNow has reset the count: a request that is counted before the
  // reset starts no timer of its own, so this run must use its task. `task_lock` orders them: a
  // request that takes it after this run is counted after the reset.
  const auto run_latest = [this] {
    Task latest;
    {
      MutexLock hold(task_lock);
      latest = task;
    }
    latest();
  };
  Invoke(run_latest, true);
}

}  // namespace zo_tarvel
