#include "base/thread/delayed_task_queue.h"

#include <utility>

namespace zo_base {

void DelayedTaskQueue::Add(std::int64_t now_ms, std::int32_t delay_ms, std::int64_t times,
                           Task task) {
  if (times < 0) times = kEndless;
  const std::int64_t run_at = now_ms + delay_ms;
  GroupAt(run_at).tasks.push_back({delay_ms, times, std::move(task)});
}

DelayedTaskGroup& DelayedTaskQueue::GroupAt(std::int64_t run_at) {
  DelayedTaskGroup*& last_used = LastUsedBeside(run_at);
  if (last_used == nullptr || last_used->run_at != run_at) {
    last_used = &groups_.try_emplace(run_at).first->second;
    last_used->run_at = run_at;
  }
  return *last_used;
}

}  // namespace zo_base
