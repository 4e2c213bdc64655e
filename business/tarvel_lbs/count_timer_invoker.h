#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/lock/recursive_mutex.h"
#include "base/thread/task_thread.h"
#include "base/thread/timer.h"

namespace zo_tarvel {

// Gathers a burst of requests for the same work into one run: at the n-th request or a time span
// after the first one, whichever comes first. Who can't wait runs it at once.
//
// Threads: any. The work runs on the thread that completes the condition, on the owning thread
// when that is the span's end; it must be short, and must not wait for the owning thread.
// Ownership: when the last owner lets go, what is pending comes to nothing.
class CountTimerInvoker {
 public:
  // `thread` says whether work may still run; the span is timed on its loop. `time_ms` in
  // milliseconds.
  static std::shared_ptr<CountTimerInvoker> Create(
      std::int32_t times, std::int32_t time_ms, const std::shared_ptr<zo_base::TaskThread>& thread);

  // Not immediately: the latest task is the one that runs. Immediately: `task` runs on the calling
  // thread, and what was pending is replaced by that; with the owning thread gone or stopping,
  // nothing runs.
  void Invoke(const zo_base::Task& task, bool immediately);

  // From now on nothing is run.
  void Stop();

 private:
  CountTimerInvoker(std::int32_t times, std::int32_t time_ms,
                    const std::shared_ptr<zo_base::TaskThread>& thread);
  ~CountTimerInvoker() = default;

  void InvokeNow(const zo_base::Task& task);
  void Gather(const zo_base::Task& task);
  void OnTimeOut();

  const std::int32_t times;
  const std::int32_t time_ms;
  std::atomic<bool> stopped{false};
  std::atomic<std::int32_t> count{0};  // Requests since the last run.
  const std::weak_ptr<zo_base::TaskThread> thread;
  std::weak_ptr<CountTimerInvoker> self;  // Set once, by Create.
  zo_base::_thread_recursive_mutex task_lock;
  zo_base::Task task ZO_GUARDED_BY(task_lock);  // Of the latest request that could wait.
  zo_base::Timer timer;
};

}  // namespace zo_tarvel
