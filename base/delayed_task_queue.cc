#include "base/delayed_task_queue.h"

#include <utility>

namespace zo_base {

void DelayedTaskQueue::Add(std::int64_t now_ms, std::int32_t delay_ms, std::int64_t times,
                           Task task) {
  if (times < 0) times = kEndless;
  const std::int64_t run_at = now_ms + delay_ms;
  DelayedTaskGroup& group = groups_.try_emplace(run_at).first->second;
  group.run_at = run_at;
  group.tasks.push_back({delay_ms, times, std::move(task)});
}

}  // namespace zo_base
