#pragma once

#include <atomic>

#include "base/thread/task_thread.h"
#include "base/thread/timer.h"

namespace zo_tarvel {

// Gathers a burst of requests for the same work into one run: at the n-th request or a time span
// after the first one, whichever comes first. An immediate request runs at once.
//
// Threads: any. The work runs on the thread that makes the n-th or immediate request, or on the
// owning thread at the end of the span. It must be short, and must not wait for the owning thread.
// Ownership: when the last owner releases it, pending work is dropped.
class CountTimerInvoker : public std::enable_shared_from_this<CountTimerInvoker> {
 public:
  // Work runs only while `thread` does. The span is timed on its loop.
  CountTimerInvoker(std::int32_t times, std::int32_t time_ms,
                    const std::shared_ptr<zo_base::TaskThread>& thread);

  // Not immediately: the latest task is the one that runs. Immediately: `task` runs on the calling
  // thread in place of all pending ones; if the owning thread has ended or is stopping, nothing
  // runs.
  void Invoke(const zo_base::Task& task, bool immediately);

  // From now on nothing runs.
  void Stop();

 private:
  void InvokeNow(const zo_base::Task& task);
  void Gather(const zo_base::Task& task);
  void OnTimeOut();

  const std::int32_t times;
  const std::int32_t time_ms;
  const std::weak_ptr<zo_base::TaskThread> thread;

  std::atomic<bool> stopped{false};
  std::atomic<std::int32_t> count{0};  // Requests since the last run.
  zo_base::Timer timer;

  zo_base::_thread_recursive_mutex task_lock;
  zo_base::Task task ZO_GUARDED_BY(task_lock);  // Of the latest request that wasn't immediate.
};

}  // namespace zo_tarvel
